// The 8-bit picture the models look at: sRGB-encoded RGB, unpremultiplied over black, rows packed.
#pragma once

#include <cstdint>
#include <vector>

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::vision {

struct Bitmap {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;  // width × height × 3

    bool empty() const { return width <= 0 || height <= 0; }
    int longEdge() const { return width > height ? width : height; }
    const uint8_t* row(int y) const { return rgb.data() + size_t(y) * size_t(width) * 3; }
    uint8_t* row(int y) { return rgb.data() + size_t(y) * size_t(width) * 3; }

    /// The engine's picture, antialiased down so that its long edge is at most `maxLongEdge`
    /// (0: any size; never enlarged), encoded to 8-bit sRGB. Empty for an empty image.
    static Bitmap of(const img::Image& image, int maxLongEdge = 0, const img::Execution& exec = {});
};

}  // namespace ql::vision
