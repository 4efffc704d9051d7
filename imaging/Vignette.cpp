#include "Vignette.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace ql::img {

VignetteGains::VignetteGains(const VignetteParams& p) {
    if (!std::isfinite(p.centerX) || !std::isfinite(p.centerY) || !std::isfinite(p.radius) ||
        !std::isfinite(p.intensity) || p.intensity == 0)
        return;
    neutral_ = false;
    centerX_ = p.centerX, centerY_ = p.centerY;
    intensity_ = std::clamp(p.intensity, -1.0f, 1.0f);
    radius_ = std::max(p.radius, 0.0f);
    width_ = (p.falloff > 0 ? std::min(p.falloff, 1.0f) : 0.0f) * radius_;
}

void VignetteGains::row(int y, int width, float* gains) const {
    const float dy = float(y) + 0.5f - centerY_;
    for (int x = 0; x < width; ++x) {
        const float dx = float(x) + 0.5f - centerX_, d = std::sqrt(dx * dx + dy * dy);
        float s = 1;
        if (d <= radius_) {
            s = 0;
        } else if (d < radius_ + width_) {
            const float u = (d - radius_) / width_;
            s = u * u * (3 - 2 * u);
        }
        gains[x] = 1 - intensity_ * s;
    }
}

Image vignette(const Image& input, const VignetteParams& p, const Execution& exec) {
    const VignetteGains gains(p);
    if (input.empty() || gains.neutral()) return input;
    Image out = Image::forOverwrite(input.width(), input.height());
    // The gain depends on the position, which the per-pixel map does not give, so the rows are
    // spread with the parallel loop itself.
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        std::vector<float> gain(static_cast<size_t>(input.width()));
        for (int y = y0; y < y1; ++y) {
            gains.row(y, input.width(), gain.data());
            const float* in = input.row(y);
            float* o = out.row(y);
            for (int x = 0; x < input.width(); ++x, in += 4, o += 4) {
                const float g = gain[size_t(x)];
                o[0] = in[0] * g;
                o[1] = in[1] * g;
                o[2] = in[2] * g;
                o[3] = in[3];
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
