#include "WhiteBalanceCorrection.h"

#include <algorithm>
#include <cmath>

namespace ql::WhiteBalanceCorrection {

double mired(double kelvin) {
    return 1e6 / std::max(kelvin, 1000.0);
}

double warmthError(const PhotoAnalysis& analysis, const PhotoFacts& facts) {
    if (analysis.lookWarmth) return *analysis.lookWarmth;
    if (facts.isRAW) return mired(facts.asShotTemperature) - mired(analysis.neutralTemperature);
    return analysis.neutralTemperature;
}

double tintError(const PhotoAnalysis& analysis, const PhotoFacts& facts) {
    if (analysis.lookWarmth && analysis.lookTint) return *analysis.lookTint;
    if (facts.isRAW) return analysis.neutralTint - facts.asShotTint;
    return analysis.neutralTint;
}

Correction tolerated(double warmthError, double tintError) {
    Correction c;
    const double sign = warmthError < 0 ? -1 : (warmthError > 0 ? 1 : 0);
    c.warmth = sign * std::max(std::abs(warmthError) - 40, 0.0) * 0.5;
    c.tint = std::abs(tintError) > 12 ? 0.4 * tintError : 0;
    return c;
}

double kelvinOfMired(double m) {
    if (m <= 83.33333333333333) return 12000;
    return std::round(1e6 / std::min(m, 500.0) / 50) * 50;
}

void apply(Adjustments& adjustments, const PhotoFacts& facts, Correction correction) {
    if (facts.isRAW) {
        if (std::abs(correction.warmth) >= 1)
            adjustments.rawTemperature =
                kelvinOfMired(mired(facts.asShotTemperature) - correction.warmth);
        if (std::abs(correction.tint) >= 1)
            adjustments.rawTint =
                std::clamp(std::round(correction.tint + facts.asShotTint), -150.0, 150.0);
        return;
    }
    adjustments.temperature = std::round(std::clamp(correction.warmth, -100.0, 100.0));
    adjustments.tint = std::round(std::clamp(correction.tint, -100.0, 100.0));
}

}  // namespace ql::WhiteBalanceCorrection
