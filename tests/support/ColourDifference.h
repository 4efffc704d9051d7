// CIEDE2000 colour differences between pictures, the measure a viewer's eye agrees with.
#pragma once

#include <vector>

#include "imaging/Image.h"

namespace ql::testing {

struct Lab {
    double L = 0, a = 0, b = 0;
};

/// CIELAB (D65 white) of a linear-sRGB colour; values outside 0…1 are clamped first, as a
/// display would show them.
Lab labFromLinearSrgb(double r, double g, double b);

/// CIEDE2000 with kL = kC = kH = 1.
double deltaE2000(const Lab& x, const Lab& y);

struct DeltaEStats {
    double mean = 0, p99 = 0, max = 0;
};

/// Pixel-by-pixel ΔE2000 of two opaque pictures of the same size.
DeltaEStats compare(const img::Image& a, const img::Image& b);

}  // namespace ql::testing
