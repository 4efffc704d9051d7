#include "Orientation.h"

#include <algorithm>
#include <cstring>

namespace ql::img {

Image orient(const Image& input, int orientation, const Execution& exec) {
    if (input.empty() || orientation < 2 || orientation > 8) return input;
    const int w = input.width(), h = input.height();
    const bool swap = swapsAxes(orientation);
    const int ow = swap ? h : w, oh = swap ? w : h;
    Image out = Image::forOverwrite(ow, oh);
    // Blocks of rows keep the column walks of the quarter turns inside the cache.
    constexpr int kBlock = 64;
    const bool ok = parallelFor(0, (oh + kBlock - 1) / kBlock, exec, [&](int b0, int b1) {
        for (int by = b0 * kBlock; by < std::min(oh, b1 * kBlock); by += kBlock)
            for (int bx = 0; bx < ow; bx += kBlock)
                for (int oy = by; oy < std::min(oh, by + kBlock); ++oy) {
                    float* dst = out.row(oy);
                    for (int ox = bx; ox < std::min(ow, bx + kBlock); ++ox) {
                        const SourcePoint s = orientedSource(orientation, w, h, ox, oy);
                        std::memcpy(dst + size_t(ox) * 4, input.row(s.y) + size_t(s.x) * 4,
                                    4 * sizeof(float));
                    }
                }
    });
    return ok ? out : Image();
}

}  // namespace ql::img
