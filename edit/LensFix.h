// Lens corrections: profile, defringing, distortion, vignetting, chromatic aberration.
#pragma once

#include <optional>

#include "Codec.h"

namespace ql {

struct LensFix {
    std::optional<bool> profile;  // absent: the decoder's own default
    double purple = 0;            // defringe amounts, 0…100
    double green = 0;
    double purpleLo = 250;  // hue ranges, degrees
    double purpleHi = 330;
    double greenLo = 75;
    double greenHi = 165;
    double distortion = 0;  // -100…100
    double vignette = 0;
    double vignetteMid = 50;
    double caRed = 0;
    double caBlue = 0;

    bool operator==(const LensFix&) const = default;
    static auto fields() {
        using F = LensFix;
        return std::tuple{field("profile", &F::profile),   field("purple", &F::purple),
                          field("green", &F::green),       field("purpleLo", &F::purpleLo),
                          field("purpleHi", &F::purpleHi), field("greenLo", &F::greenLo),
                          field("greenHi", &F::greenHi),   field("distortion", &F::distortion),
                          field("vignette", &F::vignette), field("vignetteMid", &F::vignetteMid),
                          field("caRed", &F::caRed),       field("caBlue", &F::caBlue)};
    }
};

}  // namespace ql
