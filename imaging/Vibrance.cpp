#include "Vibrance.h"

#include <algorithm>
#include <cmath>

#include "PixelMap.h"

namespace ql::img {

Image vibrance(const Image& input, const VibranceParams& p, const Execution& exec) {
    const float amount = std::isfinite(p.amount) ? std::clamp(p.amount, -1.0f, 1.0f) : 0.0f;
    if (input.empty() || amount == 0) return input;
    return mapUnpremultiplied(input, exec, [amount](float* c) {
        const float hi = std::max({c[0], c[1], c[2]});
        const float lo = std::min({c[0], c[1], c[2]});
        // Clamped so that colours with negative channels or a non-positive maximum stay sane.
        const float sat = std::clamp((hi - lo) / std::max(hi, 1e-6f), 0.0f, 1.0f);
        const float k = 1 + amount * (1 - sat) * (1 - sat);
        const float l = luma(c[0], c[1], c[2]);
        for (int i = 0; i < 3; ++i)
            c[i] = l + (c[i] - l) * k;
    });
}

}  // namespace ql::img
