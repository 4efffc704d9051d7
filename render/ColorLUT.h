// The tone and colour arithmetic the pipeline folds into one colour cube: the tone sliders, the
// four curves, colour grading, the HSL mixer, vibrance and saturation, as a function from one
// encoded sRGB triple in 0…1 to another, in double precision.
#pragma once

#include <array>
#include <vector>

#include "SampledCurve.h"
#include "edit/LUTKey.h"
#include "imaging/Execution.h"

namespace ql::ColorLUT {

/// Points along each axis of the baked cube.
constexpr int kCubeSize = 48;

/// The key's cube fields in the units the arithmetic uses; built once per bake and shared,
/// read-only, by every thread of it.
struct Params {
    explicit Params(const LUTKey& key);

    // Sliders over 100.
    double contrast = 0, highlights = 0, shadows = 0, whites = 0, blacks = 0, dehaze = 0,
           vibrance = 0, saturation = 0;
    SampledCurve master, red, green, blue;
    // HSL mixer, over 100, in ColorBand order.
    std::array<double, 8> mixH{}, mixS{}, mixL{};
    bool hasMix = false;
    // Grading wheels in the order shadows, midtones, highlights, global: a colour difference of
    // about zero luminance per wheel, and its luminance over 100.
    std::array<std::array<double, 3>, 4> wheels{};
    std::array<double, 4> wheelLum{};
    bool hasGrade = false;
    double blending = 0, balance = 0;

    /// The whole mapping.
    std::array<double, 3> apply(double r, double g, double b) const {
        return applyColour(applyTone(0, r), applyTone(1, g), applyTone(2, b));
    }

    /// The per-channel first stage of apply: the tone sliders and the curves for channel 0, 1 or
    /// 2 (red, green, blue). Apart so that a bake on a grid runs it once per grid value.
    double applyTone(int channel, double v) const;
    /// The second stage of apply, on the result of the first: grading and the HSL colour steps.
    std::array<double, 3> applyColour(double r, double g, double b) const;

  private:
    // Derived once from the fields above; the same operations apply would do, so results are
    // bit for bit those of the plain formulas.
    double dehazeLift_ = 0;  // black point lifted by dehaze
    double curve_ = 0;       // contrast plus dehaze's share
    double satGain_ = 0;     // saturation plus dehaze's share
    bool colourStep_ = false;
    double centre_ = 0, spread_ = 0, shadowSpan_ = 0, highlightLow_ = 0, highlightSpan_ = 0,
           midWidth_ = 0;
    std::array<std::array<double, 3>, 4> gradeShift_{};  // per wheel: 0.35 colour + 0.25 lum
};

/// One HSL channel from the two luminance bounds p, q and the hue t in turns.
double hslToRGB(double p, double q, double t);

/// The cube: kCubeSize³ texels of four floats (red, green, blue, alpha = 1), red varying
/// fastest and blue slowest, grid value i / (kCubeSize - 1). One parallel task per blue slice.
/// Empty when cancelled.
std::vector<float> build(const LUTKey& key, const img::Execution& exec = {});

}  // namespace ql::ColorLUT
