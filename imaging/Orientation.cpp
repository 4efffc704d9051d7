#include "Orientation.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace ql::img {

namespace {

// The pixel size is a constant here, so that the copy of each pixel is a move, not a call.
// `src` holds rows of w pixels, `srcStride` bytes apart.
template <size_t Bytes>
bool orientAs(const unsigned char* src, int w, int h, size_t srcStride, int orientation,
              unsigned char* dst, const Execution& exec) {
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
                                    src + size_t(s.y) * srcStride + size_t(s.x) * Bytes, Bytes);
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
            return orientAs<3>(src, w, h, size_t(w) * 3, orientation, dst, exec);
        case 4 * sizeof(float):
            return orientAs<4 * sizeof(float)>(src, w, h, size_t(w) * 4 * sizeof(float),
                                               orientation, dst, exec);
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

Image orient(const Image& input, int orientation, const PixelRect& from, const Execution& exec) {
    if (orientation < 2 || orientation > 8) return crop(input, from, exec);
    const int x0 = std::max(from.x, 0), y0 = std::max(from.y, 0);
    const int x1 = std::min(from.x + from.width, input.width());
    const int y1 = std::min(from.y + from.height, input.height());
    if (x1 <= x0 || y1 <= y0) return Image();
    const int w = x1 - x0, h = y1 - y0;
    const bool swap = swapsAxes(orientation);
    Image out = swap ? Image::forOverwrite(h, w) : Image::forOverwrite(w, h);
    constexpr size_t kPixel = 4 * sizeof(float);
    const auto* src = reinterpret_cast<const unsigned char*>(input.row(y0) + size_t(x0) * 4);
    const bool ok = orientAs<kPixel>(src, w, h, size_t(input.width()) * kPixel, orientation,
                                     reinterpret_cast<unsigned char*>(out.data()), exec);
    return ok ? out : Image();
}

}  // namespace ql::img
