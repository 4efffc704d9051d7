// HSL of encoded values, as the measures and the colour words use it.
#pragma once

#include <algorithm>

namespace ql {

struct Hsl {
    double hue = 0;  // degrees, 0…360
    double saturation = 0;
    double lightness = 0;
    bool gray = true;  // no hue: the extremes are equal
};

/// Channels are taken as given (callers clamp them first where they must).
inline Hsl hslOf(double r, double g, double b) {
    const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
    const double d = mx - mn;
    Hsl out;
    out.lightness = (mx + mn) / 2;
    if (d < 1e-9) return out;
    out.gray = false;
    out.saturation = d / (out.lightness > 0.5 ? 2 - mx - mn : mx + mn);
    double h;
    if (mx == r)
        h = (g - b) / d + (g < b ? 6 : 0);
    else if (mx == g)
        h = (b - r) / d + 2;
    else
        h = (r - g) / d + 4;
    out.hue = h * 60;
    return out;
}

/// Display luma of encoded values.
inline double lumaOf(double r, double g, double b) {
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
}

}  // namespace ql
