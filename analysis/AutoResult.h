// The Auto command: a photo's analysis turned into a complete edit.
#pragma once

#include "PhotoAnalysis.h"
#include "PhotoFacts.h"
#include "edit/Adjustments.h"

namespace ql {

/// A fresh edit keeping only the geometry, sharpening, noise reduction and backdrop of `current`,
/// with the tolerated white balance, the auto tone and `current`'s style (natural when none) at
/// its strength.
Adjustments autoResult(const Adjustments& current, const PhotoAnalysis& analysis,
                       const PhotoFacts& facts);

/// Warms the edit by `amount` (positive is warmer): a mired shift of a RAW's white, a slider
/// step otherwise. Zero does nothing.
void addWarmth(Adjustments& adjustments, const PhotoFacts& facts, double amount);

/// Copies the geometry, sharpening, noise reduction and backdrop: what an automatic edit keeps.
Adjustments keepingNonTone(const Adjustments& from);

}  // namespace ql
