#include "AutoResult.h"

#include <algorithm>
#include <cmath>

#include "PhotoStyleApply.h"
#include "WhiteBalanceCorrection.h"

namespace ql {

Adjustments keepingNonTone(const Adjustments& from) {
    Adjustments a = Adjustments{}.taking({SettingsGroup::geometry}, from);
    a.sharpening = from.sharpening;
    a.noiseReduction = from.noiseReduction;
    a.backdrop = from.backdrop;
    return a;
}

Adjustments autoResult(const Adjustments& current, const PhotoAnalysis& analysis,
                       const PhotoFacts& facts) {
    namespace wb = WhiteBalanceCorrection;
    Adjustments a = keepingNonTone(current);
    const PhotoStyle style = current.style.value_or(PhotoStyle::natural);
    const double strength = std::isfinite(current.styleStrength)
                                ? std::clamp(current.styleStrength / 100, 0.0, 1.5)
                                : 1.0;

    wb::apply(a, facts,
              wb::tolerated(wb::warmthError(analysis, facts), wb::tintError(analysis, facts)));

    const AutoTone& t = analysis.autoTone;
    a.exposure = t.exposure;
    a.contrast = t.contrast;
    a.highlights = t.highlights;
    a.shadows = t.shadows;
    a.whites = t.whites;
    a.blacks = t.blacks;
    a.vibrance = t.vibrance;
    a.saturation = t.saturation;
    a.clarity = t.clarity;
    a.dehaze = t.dehaze;
    if (t.peopleExposure != 0) a.people.exposure = t.peopleExposure;

    applyStyle(a, style, strength,
               [&](Adjustments& target, double amount) { addWarmth(target, facts, amount); });
    if (style != PhotoStyle::mono) a.vibrance = std::min(a.vibrance, 40.0);
    a.style = style;
    a.styleStrength = std::round(strength * 100);
    return a;
}

void addWarmth(Adjustments& adjustments, const PhotoFacts& facts, double amount) {
    namespace wb = WhiteBalanceCorrection;
    if (amount == 0 || !std::isfinite(amount)) return;
    if (facts.isRAW) {
        const double kelvin = adjustments.rawTemperature.value_or(facts.asShotTemperature);
        adjustments.rawTemperature = wb::kelvinOfMired(wb::mired(kelvin) - amount);
        return;
    }
    adjustments.temperature =
        std::round(std::clamp(adjustments.temperature + amount, -100.0, 100.0));
}

}  // namespace ql
