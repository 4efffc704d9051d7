#include "GammaAdjust.h"

#include <cmath>

#include "PixelMap.h"

namespace ql::img {

Image gammaAdjust(const Image& input, const GammaParams& p, const Execution& exec) {
    if (input.empty() || p.power == 1 || !(p.power > 0) || !std::isfinite(p.power)) return input;
    const float power = p.power;
    return mapUnpremultiplied(input, exec, [power](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = std::copysign(std::pow(std::abs(c[i]), power), c[i]);
    });
}

}  // namespace ql::img
