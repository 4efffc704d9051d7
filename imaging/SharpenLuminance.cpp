#include "SharpenLuminance.h"

#include <cmath>

#include "GaussianBlur.h"
#include "PixelMap.h"

namespace ql::img {

Image sharpenLuminance(const Image& input, const SharpenLuminanceParams& p, const Execution& exec) {
    const float k = p.sharpness;
    if (input.empty() || !(p.radius >= 0.3f) || k == 0 || !std::isfinite(k)) return input;
    // Luma is linear, so the luma of the blurred colour is the blurred luma: one plane to blur
    // instead of four channels.
    const int w = input.width(), h = input.height();
    const Plane lumas = lumaPlane(input, exec);
    if (lumas.empty()) return Image{};
    const Plane blurred = detail::blurPlane(lumas, p.radius, exec);
    if (blurred.empty()) return Image{};
    Image out = Image::forOverwrite(w, h);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float *l = lumas.row(y), *b = blurred.row(y);
            const float* in = input.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x, in += 4, o += 4) {
                if (x % 8 == 0) prefetchAhead(in);
                const float d = k * (l[x] - b[x]);
                o[0] = in[0] + d, o[1] = in[1] + d, o[2] = in[2] + d, o[3] = in[3];
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
