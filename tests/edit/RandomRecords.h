// Records filled with random, non-default values, for round trips and mutation.
#pragma once

#include <random>

#include "edit/Adjustments.h"

namespace ql::testing {

/// Every field of the result differs from the default.
Adjustments randomAdjustments(std::mt19937_64& rng);

}  // namespace ql::testing
