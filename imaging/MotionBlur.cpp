#include "MotionBlur.h"
#include "Simd.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace ql::img {
namespace {

using namespace simd;

// One sample of the line, relative to the pixel: the top-left of its 2×2 bilinear footprint and
// the four weights, already scaled by the sample's share of the average.
struct Tap {
    int dx, dy;
    float w00, w10, w01, w11;  // (dx, dy), (dx + 1, dy), (dx, dy + 1), (dx + 1, dy + 1)
};

std::vector<Tap> lineTaps(double radius, double angle) {
    const int n = int(std::floor(radius));
    const double frac = radius - n, total = 2 * n + 1 + 2 * frac;
    const double cx = std::cos(angle), cy = -std::sin(angle);  // rows run downward
    std::vector<Tap> taps;
    for (int k = -n - 1; k <= n + 1; ++k) {
        const double share = (std::abs(k) <= n ? 1 : frac) / total;
        if (share == 0) continue;
        const double ox = k * cx, oy = k * cy;
        const double fx = ox - std::floor(ox), fy = oy - std::floor(oy);
        taps.push_back({int(std::floor(ox)), int(std::floor(oy)),
                        float(share * (1 - fx) * (1 - fy)), float(share * fx * (1 - fy)),
                        float(share * (1 - fx) * fy), float(share * fx * fy)});
    }
    return taps;
}

}  // namespace

Image motionBlur(const Image& input, const MotionBlurParams& p, const Execution& exec) {
    if (input.empty() || !(p.radius > 0) || !std::isfinite(p.angle)) return input;
    const std::vector<Tap> taps =
        lineTaps(std::min(double(p.radius), double(input.longEdge())), p.angle);
    const int w = input.width(), h = input.height();
    Image out = Image::forOverwrite(w, h);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        // Taps outer, pixels inner: one row of sums stays in cache while source rows stream.
        std::vector<v4> sum(size_t(w), v4{});
        for (int y = y0; y < y1; ++y) {
            if (exec.cancelled()) return;  // long lines make long rows of work
            std::fill(sum.begin(), sum.end(), v4{});
            for (const Tap& t : taps) {
                const float* top = input.row(std::clamp(y + t.dy, 0, h - 1));
                const float* bottom = input.row(std::clamp(y + t.dy + 1, 0, h - 1));
                auto add = [&](int x, int x0, int x1) {
                    sum[size_t(x)] += t.w00 * load(top + 4 * x0) + t.w10 * load(top + 4 * x1) +
                                      t.w01 * load(bottom + 4 * x0) + t.w11 * load(bottom + 4 * x1);
                };
                // Where both columns of the footprint are inside, no clamping is needed.
                const int lo = std::clamp(-t.dx, 0, w), hi = std::clamp(w - 1 - t.dx, lo, w);
                for (int x = 0; x < lo; ++x)
                    add(x, std::clamp(x + t.dx, 0, w - 1), std::clamp(x + t.dx + 1, 0, w - 1));
                for (int x = lo; x < hi; ++x)
                    add(x, x + t.dx, x + t.dx + 1);
                for (int x = hi; x < w; ++x)
                    add(x, std::clamp(x + t.dx, 0, w - 1), std::clamp(x + t.dx + 1, 0, w - 1));
            }
            std::memcpy(out.row(y), sum.data(), size_t(w) * sizeof(v4));
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
