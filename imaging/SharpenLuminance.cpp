#include "SharpenLuminance.h"

#include <cmath>

#include "GaussianBlur.h"

namespace ql::img {

Image sharpenLuminance(const Image& input, const SharpenLuminanceParams& p, const Execution& exec) {
    const float k = p.sharpness;
    if (input.empty() || !(p.radius >= 0.3f) || k == 0 || !std::isfinite(k)) return input;
    detail::BlurHooks hooks;
    // Luma is linear, so the luma of the blurred colour is the blurred luma.
    hooks.finish = [k](const float* in, const float* blurred, float* out, int count) {
        for (int i = 0; i < 4 * count; i += 4) {
            const float d = k * (luma(in[i], in[i + 1], in[i + 2]) -
                                 luma(blurred[i], blurred[i + 1], blurred[i + 2]));
            out[i] = in[i] + d;
            out[i + 1] = in[i + 1] + d;
            out[i + 2] = in[i + 2] + d;
            out[i + 3] = in[i + 3];
        }
    };
    return detail::gaussianBlurWith(input, {p.radius, EdgeMode::clamp}, hooks, exec);
}

}  // namespace ql::img
