#include "UnsharpMask.h"

#include <cmath>

#include "ExposureAdjust.h"
#include "GaussianBlur.h"

namespace ql::img {

Image unsharpMask(Image input, const UnsharpMaskParams& p, const Execution& exec) {
    const float k = p.intensity;
    const float g = std::isfinite(p.inputGain) && p.inputGain > 0 ? p.inputGain : 1;
    if (input.empty() || !(p.radius >= 0.3f) || !std::isfinite(k)) return input;
    if (k == 0) return g == 1 ? input : exposureAdjust(std::move(input), {std::log2(g)}, exec);
    detail::BlurHooks hooks;
    hooks.coarse = 8;  // a wide radius lifts broad contrast; one level off at most
    // Combining while the blur is written saves a pass over memory; so does the gain.
    hooks.finish = [k, g](const float* in, const float* blurred, float* out, int count) {
        for (int i = 0; i < 4 * count; i += 4) {
            for (int c = 0; c < 3; ++c)
                out[i + c] = g * (in[i + c] + k * (in[i + c] - blurred[i + c]));
            out[i + 3] = in[i + 3];
        }
    };
    return detail::gaussianBlurWith(std::move(input), {p.radius, p.edges}, hooks, exec);
}

}  // namespace ql::img
