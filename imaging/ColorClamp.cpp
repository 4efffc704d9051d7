#include "ColorClamp.h"

#include <algorithm>
#include <cmath>

#include "PixelMap.h"

namespace ql::img {

Image colorClamp(const Image& input, const ColorClampParams& p, const Execution& exec) {
    // A NaN limit becomes an infinite one, which then needs no special case below.
    const auto lower = [](float v) { return std::isnan(v) ? -ColorClampParams::kInf : v; };
    const auto upper = [](float v) { return std::isnan(v) ? ColorClampParams::kInf : v; };
    const float lo[4] = {lower(p.min.r), lower(p.min.g), lower(p.min.b), lower(p.min.a)};
    const float hi[4] = {upper(p.max.r), upper(p.max.g), upper(p.max.b), upper(p.max.a)};
    bool neutral = true;
    for (int i = 0; i < 4; ++i)
        neutral = neutral && lo[i] == -ColorClampParams::kInf && hi[i] == ColorClampParams::kInf;
    if (input.empty() || neutral) return input;
    return mapPixels(input, exec, [&lo, &hi](const float* in, float* out) {
        const float u = unpremultiplyScale(in[3]);
        const float a = std::min(std::max(in[3], lo[3]), hi[3]);
        const float m = premultiplyScale(a);
        for (int i = 0; i < 3; ++i)
            out[i] = std::min(std::max(in[i] * u, lo[i]), hi[i]) * m;
        out[3] = a;
    });
}

}  // namespace ql::img
