#include "BoxShrink.h"

#include <algorithm>
#include <vector>

#include "LanczosScale.h"
#include "Simd.h"

namespace ql::img {

using namespace simd;

Image boxShrink(const Image& input, int kx, int ky, const Execution& exec,
                const RowPrepare& prepare) {
    if (input.empty()) return input;
    kx = std::max(kx, 1), ky = std::max(ky, 1);
    const int w = input.width(), h = input.height();
    const int sw = (w + kx - 1) / kx, sh = (h + ky - 1) / ky;
    Image out = Image::forOverwrite(sw, sh);
    const bool done = parallelFor(0, sh, exec, [&](int r0, int r1) {
        std::vector<float> prepared(prepare ? size_t(w) * 4 : 0);
        std::vector<v4> sums(static_cast<size_t>(sw));
        for (int sy = r0; sy < r1; ++sy) {
            std::fill(sums.begin(), sums.end(), splat(0));
            const int y0 = sy * ky, y1 = std::min(y0 + ky, h);
            for (int y = y0; y < y1; ++y) {
                const float* row = input.row(y);
                if (prepare) {
                    prepare(row, prepared.data(), w);
                    row = prepared.data();
                }
                for (int sx = 0, x = 0; sx < sw; ++sx) {
                    v4 s = sums[size_t(sx)];
                    for (const int xe = std::min(x + kx, w); x < xe; ++x)
                        s += load(row + 4 * size_t(x));
                    sums[size_t(sx)] = s;
                }
            }
            float* o = out.row(sy);
            for (int sx = 0; sx < sw; ++sx) {
                const int n = (std::min((sx + 1) * kx, w) - sx * kx) * (y1 - y0);
                store(o + 4 * size_t(sx), sums[size_t(sx)] * splat(1.0f / float(n)));
            }
        }
    });
    return done ? out : Image{};
}

Image shrinkTo(const Image& input, int width, int height, double margin, const Execution& exec) {
    if (input.empty() || width < 1 || height < 1) return {};
    if (input.width() == width && input.height() == height) return input;
    const int kx = std::max(1, int(input.width() / (margin * width)));
    const int ky = std::max(1, int(input.height() / (margin * height)));
    const Image blocks = kx > 1 || ky > 1 ? boxShrink(input, kx, ky, exec) : input;
    return blocks.empty() ? blocks : resize(blocks, width, height, exec);
}

}  // namespace ql::img
