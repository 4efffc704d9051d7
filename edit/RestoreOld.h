// Restoration of a scanned or re-photographed old print.
#pragma once

#include "Codec.h"

namespace ql {

struct RestoreOld {
    enum class Tone { colour, grey, sepia };

    double amount = 0;     // tonal and colour repair
    double scratches = 0;  // mark removal
    double markSize = 30;  // largest mark that counts
    bool protectDetail = true;
    double yellow = 0;
    double contrast = 0;
    double grain = 0;
    double sharpen = 0;
    double faces = 0;
    Tone tone = Tone::colour;

    /// Sepia or grey toning alone is work too, so `tone` counts.
    bool isNeutral() const {
        return amount == 0 && scratches == 0 && contrast == 0 && grain == 0 && sharpen == 0 &&
               faces == 0 && yellow == 0 && tone == Tone::colour;
    }

    bool operator==(const RestoreOld&) const = default;
    static auto fields() {
        using R = RestoreOld;
        return std::tuple{
            field("amount", &R::amount),     field("scratches", &R::scratches),
            field("markSize", &R::markSize), field("protectDetail", &R::protectDetail),
            field("yellow", &R::yellow),     field("contrast", &R::contrast),
            field("grain", &R::grain),       field("sharpen", &R::sharpen),
            field("faces", &R::faces),       field("tone", &R::tone)};
    }
};

template <>
struct EnumNames<RestoreOld::Tone> {
    static constexpr std::array<std::string_view, 3> names{"colour", "grey", "sepia"};
};

}  // namespace ql
