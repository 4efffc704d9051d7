// Four tone curves on encoded sRGB values.
#pragma once

#include <vector>

#include "Codec.h"

namespace ql {

struct CurvePoint {
    double x = 0;  // input, 0…1
    double y = 0;  // output, 0…1

    bool operator==(const CurvePoint&) const = default;
    static auto fields() {
        return std::tuple{requiredField("x", &CurvePoint::x), requiredField("y", &CurvePoint::y)};
    }
};

enum class CurveChannel { master, red, green, blue };

template <>
struct EnumNames<CurveChannel> {
    static constexpr std::array<std::string_view, 4> names{"master", "red", "green", "blue"};
    static constexpr std::array<std::string_view, 4> labels{"RGB", "Đỏ", "Lục", "Lam"};
};

struct ToneCurves {
    static inline const std::vector<CurvePoint> straight{{0, 0}, {1, 1}};

    std::vector<CurvePoint> master = straight;
    std::vector<CurvePoint> red = straight;
    std::vector<CurvePoint> green = straight;
    std::vector<CurvePoint> blue = straight;

    static ToneCurves identity() { return {}; }

    std::vector<CurvePoint>& operator[](CurveChannel c) {
        switch (c) {
            case CurveChannel::red:
                return red;
            case CurveChannel::green:
                return green;
            case CurveChannel::blue:
                return blue;
            default:
                return master;
        }
    }
    const std::vector<CurvePoint>& operator[](CurveChannel c) const {
        return const_cast<ToneCurves&>(*this)[c];
    }

    bool operator==(const ToneCurves&) const = default;
    static auto fields() {
        return std::tuple{field("master", &ToneCurves::master), field("red", &ToneCurves::red),
                          field("green", &ToneCurves::green), field("blue", &ToneCurves::blue)};
    }
};

}  // namespace ql
