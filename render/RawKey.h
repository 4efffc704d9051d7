// What one RAW development depends on: the four fields of an edit that change the decoded
// pixels themselves. Any other slider works on the decoded picture.
#pragma once

#include <optional>

#include "edit/Adjustments.h"

namespace ql {

struct RawKey {
    double temp = 0;  // kelvin
    double tint = 0;
    double nr = 0;
    std::optional<bool> lens;

    bool operator==(const RawKey&) const = default;

    /// The key of an edit, with the photo's as-shot neutral standing in for an absent one.
    static RawKey of(const Adjustments& a, double asShotTemperature, double asShotTint) {
        return {a.rawTemperature.value_or(asShotTemperature), a.rawTint.value_or(asShotTint),
                a.noiseReduction, a.lens.profile};
    }
};

}  // namespace ql
