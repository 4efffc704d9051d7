// The editor's live histogram: a cheap 8-bit measure for drawing, apart from the analysis.
#pragma once

#include <array>
#include <optional>

#include <QImage>

namespace ql {

struct Histogram {
    using Curve = std::array<float, 256>;
    Curve red{}, green{}, blue{}, luma{};  // 0…1, scaled to the tallest inner bin
    bool clippedShadows = false, clippedHighlights = false;

    /// Nothing for an empty or unconvertible image. Measured at most 600 pixels long.
    static std::optional<Histogram> compute(const QImage& image);
};

}  // namespace ql
