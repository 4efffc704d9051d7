// Points in the frame and the brush strokes drawn through them.
#pragma once

#include <optional>
#include <vector>

#include "Codec.h"

namespace ql {

/// Fractions of the frame's width and height, origin at the top left.
struct NPoint {
    double x = 0;
    double y = 0;

    bool operator==(const NPoint&) const = default;
    static auto fields() {
        return std::tuple{requiredField("x", &NPoint::x), requiredField("y", &NPoint::y)};
    }
};

struct BrushStroke {
    std::vector<NPoint> points;
    double radius = 0.02;  // fraction of the frame's width
    bool erase = false;
    std::optional<NPoint> source;  // where healing copies from

    bool operator==(const BrushStroke&) const = default;
    static auto fields() {
        return std::tuple{
            field("points", &BrushStroke::points), field("radius", &BrushStroke::radius),
            field("erase", &BrushStroke::erase), field("source", &BrushStroke::source)};
    }
};

}  // namespace ql
