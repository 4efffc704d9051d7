// A small float copy of a rendered picture, the sample every measure is taken on.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "imaging/Execution.h"
#include "imaging/Image.h"
#include "vision/FaceShape.h"

namespace ql {

/// Linear light, extended sRGB, RGBA interleaved, row 0 at the top.
struct PixelBuffer {
    int width = 0, height = 0;
    std::vector<float> pixels;

    /// `image` shrunk (never enlarged) with Lanczos to at most `maxSide` on its long edge.
    /// Nothing for an empty picture, a size that is not positive, or a cancelled shrink.
    static std::optional<PixelBuffer> make(const img::Image& image, double maxSide,
                                           const img::Execution& exec = {});

    /// Mean linear r, g, b over the square of `radius` pixels around `around` (normalised),
    /// clamped to the picture. Zero for an empty buffer.
    std::array<double, 3> average(vision::Point around, int radius) const;

    size_t count() const { return size_t(width) * size_t(height); }
    const float* pixel(int x, int y) const { return pixels.data() + (size_t(y) * width + x) * 4; }
};

}  // namespace ql
