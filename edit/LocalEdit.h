// Eight sliders applied inside a mask: a person, the background, or a layer.
#pragma once

#include "Codec.h"

namespace ql {

struct LocalEdit {
    double exposure = 0;
    double contrast = 0;
    double temperature = 0;
    double saturation = 0;
    double clarity = 0;
    double highlights = 0;
    double shadows = 0;
    double tint = 0;

    bool isNeutral() const { return *this == LocalEdit{}; }

    bool operator==(const LocalEdit&) const = default;
    static auto fields() {
        return std::tuple{field("exposure", &LocalEdit::exposure),
                          field("contrast", &LocalEdit::contrast),
                          field("temperature", &LocalEdit::temperature),
                          field("saturation", &LocalEdit::saturation),
                          field("clarity", &LocalEdit::clarity),
                          field("highlights", &LocalEdit::highlights),
                          field("shadows", &LocalEdit::shadows),
                          field("tint", &LocalEdit::tint)};
    }
};

}  // namespace ql
