#include "ColorMatrix.h"

#include <cmath>

namespace ql::img {

namespace {

bool finite(const Pixel& v) {
    return std::isfinite(v.r) && std::isfinite(v.g) && std::isfinite(v.b) && std::isfinite(v.a);
}

float dot(const Pixel& row, const float* c, float a) {
    return row.r * c[0] + row.g * c[1] + row.b * c[2] + row.a * a;
}

}  // namespace

Image colorMatrix(Image input, const ColorMatrixParams& p, const Execution& exec) {
    const ColorMatrixParams identity;
    const bool neutral = p.red == identity.red && p.green == identity.green &&
                         p.blue == identity.blue && p.alpha == identity.alpha &&
                         p.bias == identity.bias;
    if (input.empty() || neutral) return input;
    if (!finite(p.red) || !finite(p.green) || !finite(p.blue) || !finite(p.alpha) ||
        !finite(p.bias))
        return input;
    return mapPixels(std::move(input), exec, [&p](const float* in, float* out) {
        const float u = unpremultiplyScale(in[3]);
        const float c[3] = {in[0] * u, in[1] * u, in[2] * u};
        const float a = dot(p.alpha, c, in[3]) + p.bias.a;
        const float m = premultiplyScale(a);
        out[0] = (dot(p.red, c, in[3]) + p.bias.r) * m;
        out[1] = (dot(p.green, c, in[3]) + p.bias.g) * m;
        out[2] = (dot(p.blue, c, in[3]) + p.bias.b) * m;
        out[3] = a;
    });
}

}  // namespace ql::img
