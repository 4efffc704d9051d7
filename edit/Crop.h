// The crop rectangle and the aspect ratios the crop tool offers.
#pragma once

#include <optional>

#include "Codec.h"

namespace ql {

/// Fractions of the straightened picture, origin at the top left.
struct CropRect {
    double x = 0;
    double y = 0;
    double w = 1;
    double h = 1;

    /// A crop without all four numbers, or with no area, is no crop at all.
    bool isValid() const { return w > 0 && h > 0; }

    bool operator==(const CropRect&) const = default;
    static auto fields() {
        return std::tuple{requiredField("x", &CropRect::x), requiredField("y", &CropRect::y),
                          requiredField("w", &CropRect::w), requiredField("h", &CropRect::h)};
    }
};

enum class CropAspect { free, original, square, r4x5, r5x4, r2x3, r3x2, r3x4, r4x3, r9x16, r16x9 };

template <>
struct EnumNames<CropAspect> {
    static constexpr std::array<std::string_view, 11> names{"free", "original", "square", "r4x5",
                                                            "r5x4", "r2x3",     "r3x2",   "r3x4",
                                                            "r4x3", "r9x16",    "r16x9"};
    static constexpr std::array<std::string_view, 11> labels{
        "Tự do", "Như ảnh gốc", "1 : 1", "4 : 5 (dọc)",  "5 : 4", "2 : 3 (dọc)",
        "3 : 2", "3 : 4 (dọc)", "4 : 3", "9 : 16 (dọc)", "16 : 9"};
};

/// Width over height: absent for `free`, the picture's own ratio for `original`.
std::optional<double> ratio(CropAspect aspect, double original);

/// The same shape turned a quarter: 4 : 5 for 5 : 4 and so on; the others are their own.
CropAspect transposed(CropAspect aspect);

}  // namespace ql
