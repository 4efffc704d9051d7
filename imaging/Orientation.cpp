#include "Orientation.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace ql::img {

namespace {

// The pixel size is a constant here, so that the copy of each pixel is a move, not a call.
template <size_t Bytes>
bool orientAs(const unsigned char* src, int w, int h, int orientation, unsigned char* dst,
              const Execution& exec) {
    const bool swap = swapsAxes(orientation);
    const int ow = swap ? h : w, oh = swap ? w : h;
    // Blocks of rows keep the column walks of the quarter turns inside the cache.
    constexpr int kBlock = 64;
    return parallelFor(0, (oh + kBlock - 1) / kBlock, exec, [&](int b0, int b1) {
        for (int by = b0 * kBlock; by < std::min(oh, b1 * kBlock); by += kBlock)
            for (int bx = 0; bx < ow; bx += kBlock)
                for (int oy = by; oy < std::min(oh, by + kBlock); ++oy)
                    for (int ox = bx; ox < std::min(ow, bx + kBlock); ++ox) {
                        const SourcePoint s = orientedSource(orientation, w, h, ox, oy);
                        std::memcpy(dst + (size_t(oy) * size_t(ow) + size_t(ox)) * Bytes,
                                    src + (size_t(s.y) * size_t(w) + size_t(s.x)) * Bytes, Bytes);
                    }
    });
}

}  // namespace

bool orientPixels(const void* in, int w, int h, size_t pixelBytes, int orientation, void* out,
                  const Execution& exec) {
    const auto* src = static_cast<const unsigned char*>(in);
    auto* dst = static_cast<unsigned char*>(out);
    switch (pixelBytes) {
        case 3:
            return orientAs<3>(src, w, h, orientation, dst, exec);
        case 4 * sizeof(float):
            return orientAs<4 * sizeof(float)>(src, w, h, orientation, dst, exec);
        default:
            throw std::invalid_argument("orientPixels: unsupported pixel size");
    }
}

Image orient(const Image& input, int orientation, const Execution& exec) {
    if (input.empty() || orientation < 2 || orientation > 8) return input;
    const bool swap = swapsAxes(orientation);
    Image out = swap ? Image::forOverwrite(input.height(), input.width())
                     : Image::forOverwrite(input.width(), input.height());
    const bool ok = orientPixels(input.data(), input.width(), input.height(), 4 * sizeof(float),
                                 orientation, out.data(), exec);
    return ok ? out : Image();
}

}  // namespace ql::img
