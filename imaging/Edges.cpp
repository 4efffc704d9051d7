#include "Edges.h"

#include <algorithm>
#include <cmath>

namespace ql::img {

Image edges(const Image& input, const EdgesParams& p, const Execution& exec) {
    const float k = p.intensity;
    if (input.empty() || k == 0 || !std::isfinite(k)) return input;
    const int w = input.width(), h = input.height();
    Image out = Image::forOverwrite(w, h);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* up = input.row(std::max(y - 1, 0));
            const float* mid = input.row(y);
            const float* down = input.row(std::min(y + 1, h - 1));
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) {
                const int l = 4 * std::max(x - 1, 0), c = 4 * x, r = 4 * std::min(x + 1, w - 1);
                for (int ch = 0; ch < 3; ++ch) {
                    const float gx = (up[r + ch] + 2 * mid[r + ch] + down[r + ch]) -
                                     (up[l + ch] + 2 * mid[l + ch] + down[l + ch]);
                    const float gy = (down[l + ch] + 2 * down[c + ch] + down[r + ch]) -
                                     (up[l + ch] + 2 * up[c + ch] + up[r + ch]);
                    o[c + ch] = k * std::sqrt(gx * gx + gy * gy);
                }
                o[c + 3] = 1;
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
