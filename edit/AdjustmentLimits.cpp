#include <algorithm>
#include <cmath>

#include "AdjustmentFields.h"
#include "Adjustments.h"

namespace ql {
namespace {

double limited(double v, double lo, double hi, double fallback = 0) {
    return std::isfinite(v) ? std::clamp(v, lo, hi) : fallback;
}

void limit(std::vector<CurvePoint>& points) {
    std::erase_if(points,
                  [](const CurvePoint& p) { return !std::isfinite(p.x) || !std::isfinite(p.y); });
    for (auto& p : points) {
        p.x = std::clamp(p.x, 0.0, 1.0);
        p.y = std::clamp(p.y, 0.0, 1.0);
    }
}

void limit(LocalEdit& e) {
    e.exposure = limited(e.exposure, -5, 5);
    for (double* v : {&e.contrast, &e.temperature, &e.saturation, &e.clarity, &e.highlights,
                      &e.shadows, &e.tint})
        *v = limited(*v, -100, 100);
}

void limit(GradeWheel& w) {
    w.hue = std::isfinite(w.hue) ? std::fmod(w.hue, 360.0) : 0;
    w.saturation = limited(w.saturation, 0, 100);
    w.luminance = limited(w.luminance, -100, 100);
}

}  // namespace

Adjustments Adjustments::withinRanges() const {
    Adjustments a = *this;
    const Adjustments& defaults = Adjustments::defaults();
    for (const auto& f : adjustmentFields()) {
        if (!f.range || !f.number) continue;
        const auto v = f.number(a);
        if (!v) continue;
        if (std::isfinite(*v))
            f.setNumber(a, std::clamp(*v, f.range->min, f.range->max));
        else
            f.copy(defaults, a);
    }
    for (auto* curve : {&a.curves.master, &a.curves.red, &a.curves.green, &a.curves.blue})
        limit(*curve);
    for (auto* band : {&a.mixHue, &a.mixSaturation, &a.mixLuminance})
        for (double& v : *band)
            v = limited(v, -100, 100);
    for (auto* wheel : {&a.gradeShadows, &a.gradeMidtones, &a.gradeHighlights, &a.gradeGlobal})
        limit(*wheel);
    limit(a.people);
    limit(a.background);
    for (auto& layer : a.layers)
        limit(layer.edit);
    for (double* v : {&a.lens.purple, &a.lens.green})
        *v = limited(*v, 0, 100);
    for (double* v : {&a.lens.distortion, &a.lens.vignette, &a.lens.caRed, &a.lens.caBlue})
        *v = limited(*v, -100, 100);
    a.lens.vignetteMid = limited(a.lens.vignetteMid, 0, 100, 50);
    return a;
}

}  // namespace ql
