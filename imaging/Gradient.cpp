#include "Gradient.h"

#include <cmath>

namespace ql::img {

namespace {

// Fills an image of the given size with mix(colour0, colour1, t(x, y)). There is no input to
// map, so the rows are spread with the parallel loop itself.
template <class T>
Image fill(int width, int height, Pixel c0, Pixel c1, const Execution& exec, T&& t) {
    Image out = Image::forOverwrite(width, height);
    if (out.empty()) return out;
    const bool done = parallelFor(0, height, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* o = out.row(y);
            const float py = float(y) + 0.5f;
            for (int x = 0; x < width; ++x, o += 4) {
                const float v = t(float(x) + 0.5f, py);
                // NaN goes to 0 with the clamp.
                const float s = v > 0 ? (v < 1 ? v : 1) : 0;
                o[0] = c0.r * (1 - s) + c1.r * s;
                o[1] = c0.g * (1 - s) + c1.g * s;
                o[2] = c0.b * (1 - s) + c1.b * s;
                o[3] = c0.a * (1 - s) + c1.a * s;
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace

Image linearGradient(const LinearGradientParams& p, const Execution& exec) {
    const float vx = p.x1 - p.x0, vy = p.y1 - p.y0;
    const float length2 = vx * vx + vy * vy;
    const float sx = length2 > 0 ? vx / length2 : 0, sy = length2 > 0 ? vy / length2 : 0;
    return fill(p.width, p.height, p.colour0, p.colour1, exec,
                [&](float x, float y) { return (x - p.x0) * sx + (y - p.y0) * sy; });
}

Image radialGradient(const RadialGradientParams& p, const Execution& exec) {
    const float span = p.radius1 - p.radius0;
    return fill(p.width, p.height, p.colour0, p.colour1, exec, [&](float x, float y) {
        const float d = std::hypot(x - p.centerX, y - p.centerY);
        if (span == 0) return d < p.radius0 ? 0.0f : 1.0f;
        return (d - p.radius0) / span;
    });
}

}  // namespace ql::img
