// One analysis of a photo as it came from the camera: its measures, its first correction and
// its neutral white.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "AutoTone.h"
#include "ImageStats.h"

namespace ql {

struct PhotoAnalysis {
    ImageStats stats;
    AutoTone autoTone;  // `auto` in the record's serialised form
    /// For RAW in kelvin and the decoder's tint, else in slider units.
    double neutralTemperature = 0;
    double neutralTint = 0;
    std::optional<std::vector<uint8_t>> jpeg;  // a small JPEG for a model, only when asked
    /// Only for a RAW file with the camera's look: the cast measured after that look, in mired.
    std::optional<double> lookWarmth;
    std::optional<double> lookTint;
};

}  // namespace ql
