#include "ExposureAdjust.h"

#include <cmath>

#include "PixelMap.h"

namespace ql::img {

Image exposureAdjust(Image input, const ExposureParams& p, const Execution& exec) {
    if (input.empty() || p.ev == 0 || !std::isfinite(p.ev)) return input;
    const float gain = std::exp2(p.ev);
    return mapPixels(std::move(input), exec, [gain](const float* in, float* out) {
        out[0] = in[0] * gain;
        out[1] = in[1] * gain;
        out[2] = in[2] * gain;
        out[3] = in[3];
    });
}

}  // namespace ql::img
