#include "Vignette.h"

#include <algorithm>
#include <cmath>

namespace ql::img {

Image vignette(const Image& input, const VignetteParams& p, const Execution& exec) {
    if (input.empty() || !std::isfinite(p.centerX) || !std::isfinite(p.centerY) ||
        !std::isfinite(p.radius) || !std::isfinite(p.intensity) || p.intensity == 0)
        return input;
    const float intensity = std::clamp(p.intensity, -1.0f, 1.0f);
    const float radius = std::max(p.radius, 0.0f);
    const float width = (p.falloff > 0 ? std::min(p.falloff, 1.0f) : 0.0f) * radius;
    const auto strength = [&](float d) {
        if (d <= radius) return 0.0f;
        if (d >= radius + width) return 1.0f;
        const float u = (d - radius) / width;
        return u * u * (3 - 2 * u);
    };
    Image out = Image::forOverwrite(input.width(), input.height());
    // The gain depends on the position, which the per-pixel map does not give, so the rows are
    // spread with the parallel loop itself.
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* in = input.row(y);
            float* o = out.row(y);
            const float dy = float(y) + 0.5f - p.centerY;
            for (int x = 0; x < input.width(); ++x, in += 4, o += 4) {
                const float dx = float(x) + 0.5f - p.centerX;
                const float gain = 1 - intensity * strength(std::sqrt(dx * dx + dy * dy));
                o[0] = in[0] * gain;
                o[1] = in[1] * gain;
                o[2] = in[2] * gain;
                o[3] = in[3];
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
