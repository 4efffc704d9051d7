// How far a photo's white is from neutral, and how much of that the automatic editors correct.
// One rule for the Auto command, the expert editor and the diagnosis.
#pragma once

#include "PhotoAnalysis.h"
#include "PhotoFacts.h"
#include "edit/Adjustments.h"

namespace ql::WhiteBalanceCorrection {

/// 10^6 / max(kelvin, 1000).
double mired(double kelvin);

/// The warmth error: the camera look's measured cast when there is one; for RAW the mired
/// difference between as shot and the neutral; otherwise the neutral's slider temperature.
/// Negative: the picture is warmer than neutral.
double warmthError(const PhotoAnalysis& analysis, const PhotoFacts& facts);
/// The tint error on the same rule.
double tintError(const PhotoAnalysis& analysis, const PhotoFacts& facts);

struct Correction {
    double warmth = 0, tint = 0;
};
/// Small casts are the light of the place and stay: only the excess of the warmth above 40 is
/// corrected, at half strength, and 40 % of a tint beyond 12.
Correction tolerated(double warmthError, double tintError);

/// Writes a correction into the edit: for RAW as kelvin and tint from the as-shot values (left
/// absent when below 1), otherwise as rounded slider values.
void apply(Adjustments& adjustments, const PhotoFacts& facts, Correction correction);

/// The RAW kelvin of a mired value, in steps of 50, 12000 for the very cold end.
double kelvinOfMired(double m);

}  // namespace ql::WhiteBalanceCorrection
