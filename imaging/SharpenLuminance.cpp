#include "SharpenLuminance.h"

#include <cmath>

#include "GaussianBlur.h"

namespace ql::img {

Image sharpenLuminance(Image input, const SharpenLuminanceParams& p, const Execution& exec) {
    const float k = p.sharpness;
    if (input.empty() || !(p.radius >= 0.3f) || k == 0 || !std::isfinite(k)) return input;
    // Luma is linear, so the luma of the blurred colour is the blurred luma: one plane to blur
    // instead of four channels.
    Image lumaSource = input;  // a second handle, dropped once the luma is taken
    return detail::withLumaAndMean(std::move(lumaSource), std::move(input), p.radius, exec,
                                   [k](const float* in, float l, float mean, float* o) {
                                       const float d = k * (l - mean);
                                       o[0] = in[0] + d, o[1] = in[1] + d, o[2] = in[2] + d;
                                       o[3] = in[3];
                                   });
}

}  // namespace ql::img
