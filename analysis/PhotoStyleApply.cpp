#include "analysis/PhotoStyleApply.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace ql {

namespace {

// The sliders a look adds to, in the column order of Look::sliders.
using Slider = double Adjustments::*;
constexpr std::array<Slider, 11> kSliders{
    &Adjustments::exposure, &Adjustments::contrast, &Adjustments::highlights,
    &Adjustments::shadows,  &Adjustments::whites,   &Adjustments::blacks,
    &Adjustments::clarity,  &Adjustments::vibrance, &Adjustments::saturation,
    &Adjustments::vignette, &Adjustments::grain};
constexpr size_t kExposure = 0, kGrain = 10;

struct Mix {
    ColorBand band = ColorBand::red;
    double hue = 0, saturation = 0, luminance = 0;
};
struct Grade {
    double hue = 0, saturation = 0;  // saturation 0: the wheel is left alone
};
struct Point {
    double x = 0, y = 0;
};

struct Look {
    PhotoStyle style;
    std::array<double, kSliders.size()> sliders{};  // 0: not touched
    double warm = 0;
    Grade shadows{}, highlights{};
    std::array<Mix, 5> mix{};  // empty entries add nothing
    int curveSize = 0;         // 0: the master curve stays
    std::array<Point, 4> curve{};
    bool monochrome = false;  // vibrance and saturation are set, not added
};

using B = ColorBand;
using S = PhotoStyle;
//   exposure, contrast, highlights, shadows, whites, blacks, clarity, vibrance, saturation,
//   vignette, grain
constexpr std::array<Look, 9> kLooks{{
    {.style = S::natural, .sliders = {0, 0, 0, 0, 0, 0, 0, 5, 0, 0, 0}},
    {.style = S::bright,
     .sliders = {0.25, -4, -15, 22, 10, 6, -3, 10, 0, 0, 0},
     .warm = 4,
     .mix = {{{B::orange, 0, -6, 8}, {B::blue, 0, -8, 6}}}},
    {.style = S::vivid,
     .sliders = {0, 8, -8, 6, 4, 0, 10, 20, 8, 0, 0},
     .mix =
         {{{B::red, 0, 6, 0}, {B::orange, 0, -8, 0}, {B::green, 0, 10, 0}, {B::blue, 0, 12, -6}}}},
    {.style = S::warm,
     .sliders = {0, 0, -8, 8, 0, 0, 0, 10, 0, 0, 0},
     .warm = 14,
     .shadows = {25, 8},
     .highlights = {40, 16},
     .mix = {{{B::orange, 0, -6, 5}}}},
    {.style = S::solemn,
     .sliders = {0, 12, -18, 0, 0, -10, 8, 0, -12, -18, 0},
     .warm = 5,
     .shadows = {220, 6},
     .highlights = {42, 10},
     .curveSize = 4,
     .curve = {{{0, 0}, {0.3, 0.27}, {0.7, 0.72}, {1, 0.98}}}},
    {.style = S::cinematic,
     .sliders = {0, 10, -12, 0, 0, 0, 0, 0, -12, -12, 0},
     .shadows = {195, 26},
     .highlights = {35, 20},
     .mix = {{{B::orange, 0, 5, 5}, {B::green, 15, -20, 0}, {B::blue, -10, -10, 0}}},
     .curveSize = 4,
     .curve = {{{0, 0.05}, {0.25, 0.22}, {0.75, 0.78}, {1, 0.96}}}},
    {.style = S::film,
     .sliders = {0, -6, 0, 0, 0, 0, 0, 0, -16, 0, 22},
     .warm = 6,
     .shadows = {165, 10},
     .highlights = {48, 12},
     .mix = {{{B::green, -12, -15, 0}}},
     .curveSize = 4,
     .curve = {{{0, 0.08}, {0.3, 0.3}, {0.7, 0.72}, {1, 0.94}}}},
    {.style = S::pastel,
     .sliders = {0.2, -18, -12, 18, 0, 0, -8, 6, -14, 0, 0},
     .shadows = {200, 6},
     .highlights = {330, 8},
     .curveSize = 3,
     .curve = {{{0, 0.07}, {0.5, 0.53}, {1, 0.97}}}},
    {.style = S::mono,
     .sliders = {0, 18, 0, 0, 8, -8, 12, 0, 0, 0, 0},
     .mix = {{{B::red, 0, 0, 6}, {B::orange, 0, 0, 12}, {B::blue, 0, 0, -18}}},
     .curveSize = 4,
     .curve = {{{0, 0}, {0.25, 0.21}, {0.75, 0.8}, {1, 1}}},
     .monochrome = true},
}};

constexpr bool inStyleOrder() {
    for (size_t i = 0; i < kLooks.size(); ++i)
        if (static_cast<size_t>(kLooks[i].style) != i) return false;
    return true;
}
static_assert(inStyleOrder(), "one row per style, in declared order");

}  // namespace

void applyStyle(Adjustments& a, PhotoStyle style, double s,
                const std::function<void(Adjustments&, double)>& warm) {
    const auto index = static_cast<size_t>(style);
    if (index >= kLooks.size()) return;
    const Look& look = kLooks[index];

    for (size_t i = 0; i < kSliders.size(); ++i) {
        if (look.sliders[i] == 0) continue;
        double& field = a.*kSliders[i];
        const double value = field + look.sliders[i] * s;
        if (i == kExposure)
            field = std::round(value * 20) / 20;
        else
            field = std::round(std::clamp(value, i == kGrain ? 0.0 : -100.0, 100.0));
    }
    if (look.monochrome) {
        a.vibrance = 0;
        a.saturation = -100;
    }
    if (look.warm != 0 && warm) warm(a, look.warm * s);

    for (const auto& [grade, wheel] :
         {std::pair{look.shadows, &a.gradeShadows}, {look.highlights, &a.gradeHighlights}}) {
        if (grade.saturation == 0) continue;
        wheel->hue = grade.hue;
        wheel->saturation = std::round(grade.saturation * s);
    }

    for (const Mix& m : look.mix) {
        const auto band = static_cast<size_t>(m.band);
        a.mixHue[band] += std::round(m.hue * s);
        a.mixSaturation[band] += std::round(m.saturation * s);
        a.mixLuminance[band] += std::round(m.luminance * s);
    }

    if (look.curveSize > 0) {
        std::vector<CurvePoint> curve;
        for (int i = 0; i < look.curveSize; ++i) {
            const Point p = look.curve[static_cast<size_t>(i)];
            curve.push_back({p.x, std::round((p.x + s * (p.y - p.x)) * 1000) / 1000});
        }
        a.curves.master = std::move(curve);
    }
}

}  // namespace ql
