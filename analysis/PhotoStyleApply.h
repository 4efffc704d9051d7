// The looks: each adds its numbers to an edit, scaled by a strength.
#pragma once

#include <functional>

#include "edit/Adjustments.h"

namespace ql {

/// Adds `style`'s look at strength `strength` (1 = full). Sliders stay in -100…100 and are
/// rounded, exposure to 0.05 EV; five looks replace the master curve. `warm` adds warmth in the
/// edit's own units (see addWarmth).
void applyStyle(Adjustments& adjustments, PhotoStyle style, double strength,
                const std::function<void(Adjustments&, double)>& warm);

}  // namespace ql
