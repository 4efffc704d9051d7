#include "ColorControls.h"

#include <algorithm>
#include <cmath>

#include "PixelMap.h"

namespace ql::img {

Image colorControls(Image input, const ColorControlsParams& p, const Execution& exec) {
    const auto orNeutral = [](float v, float neutral) { return std::isfinite(v) ? v : neutral; };
    const float s = std::max(orNeutral(p.saturation, 1), 0.0f);
    const float b = orNeutral(p.brightness, 0);
    const float k = std::max(orNeutral(p.contrast, 1), 0.0f);
    const float g = std::isfinite(p.inputGain) && p.inputGain > 0 ? p.inputGain : 1;
    if (input.empty() || (s == 1 && b == 0 && k == 1 && g == 1)) return input;
    return mapUnpremultiplied(std::move(input), exec, [s, b, k, g](float* c) {
        c[0] *= g, c[1] *= g, c[2] *= g;
        const float l = luma(c[0], c[1], c[2]);
        for (int i = 0; i < 3; ++i)
            c[i] = ((l + (c[i] - l) * s) + b - 0.5f) * k + 0.5f;
    });
}

}  // namespace ql::img
