#include "Displace.h"

#include <algorithm>
#include <cmath>

namespace ql::img {
namespace {

/// Bilinear read with clamped edges at continuous coordinates whose pixel centres lie at +0.5.
inline void readClamped(const Image& im, float x, float y, float* out, int channels) {
    const float fx = std::clamp(x - 0.5f, 0.0f, float(im.width() - 1));
    const float fy = std::clamp(y - 0.5f, 0.0f, float(im.height() - 1));
    const int x0 = int(fx), y0 = int(fy);
    const int x1 = std::min(x0 + 1, im.width() - 1), y1 = std::min(y0 + 1, im.height() - 1);
    const float ax = fx - float(x0), ay = fy - float(y0);
    const float *a = im.row(y0) + x0 * 4, *b = im.row(y0) + x1 * 4;
    const float *c = im.row(y1) + x0 * 4, *d = im.row(y1) + x1 * 4;
    for (int k = 0; k < channels; ++k)
        out[k] = (a[k] * (1 - ax) + b[k] * ax) * (1 - ay) + (c[k] * (1 - ax) + d[k] * ax) * ay;
}

Image run(const Image& input, const Image& field, const Image* mask, const DisplaceParams& p,
          const Execution& exec) {
    if (input.empty() || field.empty() || p.scale == 0 || !std::isfinite(p.scale)) return input;
    if (mask && (mask->width() != input.width() || mask->height() != input.height())) return input;
    const float sx = float(field.width()) / float(input.width());
    const float sy = float(field.height()) / float(input.height());
    Image out = Image::forOverwrite(input.width(), input.height());
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        float offset[2];
        for (int y = y0; y < y1; ++y) {
            float* o = out.row(y);
            for (int x = 0; x < input.width(); ++x) {
                const float px = float(x) + 0.5f, py = float(y) + 0.5f;
                readClamped(field, px * sx, py * sy, offset, 2);
                float k = p.scale;
                if (mask) k *= std::clamp(mask->row(y)[x * 4], 0.0f, 1.0f);
                float dx = offset[0] * k, dy = offset[1] * k;
                if (!std::isfinite(dx) || !std::isfinite(dy)) dx = dy = 0;  // broken field
                readClamped(input, px + dx, py + dy, o + x * 4, 4);
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace

Image displace(const Image& input, const Image& field, const DisplaceParams& p,
               const Execution& exec) {
    return run(input, field, nullptr, p, exec);
}

Image displace(const Image& input, const Image& field, const Image& mask, const DisplaceParams& p,
               const Execution& exec) {
    return run(input, field, &mask, p, exec);
}

}  // namespace ql::img
