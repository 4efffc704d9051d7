// The first correction of a photo, decided from its measures.
#pragma once

#include <vector>

#include "ImageStats.h"

namespace ql {

/// In the units of the Adjustments fields of the same names; `peopleExposure` is for the edit
/// inside the person mask. whites, saturation and clarity stay 0 here; callers add to them.
struct AutoTone {
    double exposure = 0;
    double contrast = 0;
    double highlights = 0;
    double shadows = 0;
    double whites = 0;
    double blacks = 0;
    double vibrance = 0;
    double saturation = 0;
    double clarity = 0;
    double dehaze = 0;
    double peopleExposure = 0;

    bool operator==(const AutoTone&) const = default;

    /// `maxLinear`: the largest linear channel of every pixel of the sample, sorted ascending;
    /// it lets the highlight guard predict clipping for any exposure without touching pixels.
    static AutoTone suggest(const ImageStats& stats, const std::vector<float>& maxLinear);
};

namespace WhiteBalance {
/// The (temperature, tint) slider values that neutralise the (r, g, b) ratios of a neutral,
/// each in -100…100.
std::pair<double, double> neutralize(double r, double g, double b);
}  // namespace WhiteBalance

}  // namespace ql
