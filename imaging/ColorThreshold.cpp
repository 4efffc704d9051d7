#include "ColorThreshold.h"

#include <cmath>

#include "PixelMap.h"

namespace ql::img {

Image colorThreshold(const Image& input, const ColorThresholdParams& p, const Execution& exec) {
    if (input.empty()) return input;
    const float level = std::isnan(p.threshold) ? 0.5f : p.threshold;
    return mapUnpremultiplied(input, exec, [level](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = c[i] > level ? 1.0f : 0.0f;
    });
}

}  // namespace ql::img
