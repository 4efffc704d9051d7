// The HSL mixer's bands and the colour grading wheels.
#pragma once

#include "Codec.h"

namespace ql {

enum class ColorBand { red, orange, yellow, green, aqua, blue, purple, magenta };

template <>
struct EnumNames<ColorBand> {
    static constexpr std::array<std::string_view, 8> names{"red",  "orange", "yellow", "green",
                                                           "aqua", "blue",   "purple", "magenta"};
    static constexpr std::array<std::string_view, 8> labels{
        "Đỏ", "Cam", "Vàng", "Lục", "Xanh ngọc", "Xanh dương", "Tím", "Đỏ tía"};
};

/// One mixer row: a value per band, in ColorBand order.
using BandValues = std::array<double, 8>;

struct GradeWheel {
    double hue = 0;         // degrees
    double saturation = 0;  // 0…100
    double luminance = 0;   // -100…100

    bool operator==(const GradeWheel&) const = default;
    static auto fields() {
        return std::tuple{field("hue", &GradeWheel::hue),
                          field("saturation", &GradeWheel::saturation),
                          field("luminance", &GradeWheel::luminance)};
    }
};

}  // namespace ql
