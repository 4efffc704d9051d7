#include "Composite.h"

#include <algorithm>
#include <vector>

#include "PixelMap.h"
#include "StretchedChannel.h"

namespace ql::img {

namespace {

bool sameSize(const Image& a, const Image& b) {
    return a.width() == b.width() && a.height() == b.height();
}

}  // namespace

Image blendWithMask(Image input, Image background, const Image& mask, const Execution& exec) {
    if (input.empty()) return input;
    if (!sameSize(input, background) || mask.empty()) return background;
    const int w = input.width(), h = input.height();
    const StretchedChannel masks(mask, 0, w, double(mask.width()) / w, double(mask.height()) / h);
    Image out = Image::resultFor(background, input);
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        std::vector<float> row(static_cast<size_t>(w));
        for (int y = y0; y < y1; ++y) {
            masks.row(y, row.data());
            const float *t = input.row(y), *b = background.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) {
                if (x % 8 == 0) prefetchAhead(t + 4 * x), prefetchAhead(b + 4 * x);
                const float r = row[size_t(x)];
                const float m = r > 0 ? (r < 1 ? r : 1) : 0;  // NaN gives 0
                for (int c = 0; c < 4; ++c)
                    o[4 * x + c] = t[4 * x + c] * m + b[4 * x + c] * (1 - m);
            }
        }
    });
    return done ? out : Image{};
}

Image dissolve(const Image& input, const Image& target, const DissolveParams& p,
               const Execution& exec) {
    if (input.empty() || !sameSize(input, target)) return input;
    const float t = p.amount > 0 ? std::min(p.amount, 1.0f) : 0;
    if (t == 0) return input;
    if (t == 1) return target;
    return mapPixels2(input, target, exec, [t](const float* a, const float* b, float* out) {
        for (int c = 0; c < 4; ++c)
            out[c] = a[c] + (b[c] - a[c]) * t;
    });
}

Image sourceOver(const Image& input, const Image& background, const Execution& exec) {
    if (input.empty()) return input;
    if (!sameSize(input, background)) return background;
    return mapPixels2(input, background, exec, [](const float* s, const float* d, float* out) {
        const float keep = 1 - s[3];
        for (int c = 0; c < 4; ++c)
            out[c] = s[c] + d[c] * keep;
    });
}

}  // namespace ql::img
