// A model's one-shot advice on a photo, as a record. The advisor that asks for it and decodes
// it comes with the agents.
#pragma once

#include <string>
#include <vector>

namespace ql {

struct AIAdvice {
    struct MixItem {
        std::string band;  // a ColorBand name; others are ignored
        double hue = 0, saturation = 0, luminance = 0;
        bool operator==(const MixItem&) const = default;
    };
    struct Toning {
        double shadowsHue = 0, shadowsSaturation = 0;
        double highlightsHue = 0, highlightsSaturation = 0;
        bool operator==(const Toning&) const = default;
    };

    std::string scene, subject, lighting, colorCast;
    bool keepMood = false;
    std::vector<std::string> issues;
    double warmth = 0;    // -50…50
    double tintBias = 0;  // -30…30
    double exposure = 0;  // EV, -2…2
    double contrast = 0, highlights = 0, shadows = 0, whites = 0, blacks = 0, clarity = 0,
           dehaze = 0, vibrance = 0, saturation = 0;
    std::vector<MixItem> mixer;  // at most 3
    Toning toning;
    std::string explanation;
    std::string style;  // a PhotoStyle name

    bool operator==(const AIAdvice&) const = default;
};

}  // namespace ql
