#include "Composite.h"

#include <algorithm>

#include "PixelMap.h"

namespace ql::img {

namespace {

bool sameSize(const Image& a, const Image& b) {
    return a.width() == b.width() && a.height() == b.height();
}

}  // namespace

Image blendWithMask(const Image& input, const Image& background, const Image& mask,
                    const Execution& exec) {
    if (input.empty()) return input;
    if (!sameSize(input, background) || !sameSize(input, mask)) return background;
    const float* const inputBase = input.data();
    const float* const maskBase = mask.data();
    return mapPixels2(input, background, exec, [=](const float* t, const float* b, float* out) {
        // The mask pixel sits at the same offset as the input pixel.
        const float r = maskBase[t - inputBase];
        const float m = r > 0 ? (r < 1 ? r : 1) : 0;
        for (int c = 0; c < 4; ++c)
            out[c] = t[c] * m + b[c] * (1 - m);
    });
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
