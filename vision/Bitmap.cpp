#include "Bitmap.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "imaging/BoxShrink.h"
#include "imaging/SrgbTransfer.h"

namespace ql::vision {

Bitmap Bitmap::of(const img::Image& image, int maxLongEdge, const img::Execution& exec) {
    if (image.empty()) return {};
    img::Image source = image;
    if (maxLongEdge > 0 && image.longEdge() > maxLongEdge) {
        const double s = double(maxLongEdge) / image.longEdge();
        const int w = std::max(1, int(std::lround(image.width() * s)));
        const int h = std::max(1, int(std::lround(image.height() * s)));
        source = img::shrinkTo(image, w, h, 1.5, exec);
        if (source.empty()) return {};
    }
    Bitmap out;
    out.width = source.width(), out.height = source.height();
    out.rgb.resize(size_t(out.width) * size_t(out.height) * 3);
    const img::SrgbEncodeTable& encode = img::SrgbEncodeTable::shared();
    img::parallelFor(0, out.height, exec, [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            const float* in = source.row(y);
            uint8_t* o = out.row(y);
            for (int x = 0; x < out.width; ++x, in += 4, o += 3) {
                const float a = in[3];
                const float inv = a > 1e-6f ? 1.0f / a : 0.0f;
                for (int c = 0; c < 3; ++c)
                    o[c] = uint8_t(encode.clamped(in[c] * inv) * 255.0f + 0.5f);
            }
        }
    });
    return out;
}

img::Image maskImage(const float* values, int width, int height) {
    img::Image out = img::Image::forOverwrite(width, height);
    if (out.empty()) return out;
    for (int y = 0; y < height; ++y) {
        float* o = out.row(y);
        const float* v = values + size_t(y) * size_t(width);
        for (int x = 0; x < width; ++x, o += 4)
            o[0] = o[1] = o[2] = v[x], o[3] = 1.0f;
    }
    return out;
}

}  // namespace ql::vision
