#include "UnsharpMask.h"

#include <cmath>

#include "GaussianBlur.h"

namespace ql::img {

Image unsharpMask(const Image& input, const UnsharpMaskParams& p, const Execution& exec) {
    const float k = p.intensity;
    if (input.empty() || !(p.radius >= 0.3f) || k == 0 || !std::isfinite(k)) return input;
    detail::BlurHooks hooks;
    hooks.coarse = 8;  // a wide radius lifts broad contrast; one level off at most
    // Combining while the blur is written saves a pass over memory.
    hooks.finish = [k](const float* in, const float* blurred, float* out, int count) {
        for (int i = 0; i < 4 * count; i += 4) {
            for (int c = 0; c < 3; ++c)
                out[i + c] = in[i + c] + k * (in[i + c] - blurred[i + c]);
            out[i + 3] = in[i + 3];
        }
    };
    return detail::gaussianBlurWith(input, {p.radius, p.edges}, hooks, exec);
}

}  // namespace ql::img
