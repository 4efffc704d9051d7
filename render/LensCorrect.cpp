#include "LensCorrect.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "imaging/GaussianBlur.h"
#include "imaging/LanczosScale.h"
#include "imaging/Simd.h"

namespace ql::LensCorrect {
namespace {

using img::Execution;
using img::Image;
using img::simd::v4;

double slider(double v, double lo, double hi, double fallback = 0) {
    return std::isfinite(v) ? std::clamp(v, lo, hi) : fallback;
}

// Every caRed or caBlue step scales its channel's sampling radius by this much.
constexpr double kCAStep = 3e-5;

// Clamps a continuous pixel index to [0, n − 1]; NaN lands on 0.
inline float clampIndex(float u, int n) {
    return u > 0 ? (u < float(n - 1) ? u : float(n - 1)) : 0;
}

// Bilinear read of a whole pixel at pixel indices (u, v), edges clamped.
inline v4 samplePixel(const Image& im, float u, float v) {
    u = clampIndex(u, im.width());
    v = clampIndex(v, im.height());
    const int x0 = int(u), y0 = int(v);
    const int x1 = x0 + (x0 < im.width() - 1), y1 = y0 + (y0 < im.height() - 1);
    const float fx = u - float(x0), fy = v - float(y0);
    const float *r0 = im.row(y0), *r1 = im.row(y1);
    const v4 top = img::simd::load(r0 + 4 * x0) * (1 - fx) + img::simd::load(r0 + 4 * x1) * fx;
    const v4 bottom = img::simd::load(r1 + 4 * x0) * (1 - fx) + img::simd::load(r1 + 4 * x1) * fx;
    return top * (1 - fy) + bottom * fy;
}

// The same for one channel of a pixel image, or of a plane when stride is 1.
inline float sampleChannel(const float* data, int w, int h, int stride, float u, float v) {
    u = clampIndex(u, w);
    v = clampIndex(v, h);
    const int x0 = int(u), y0 = int(v);
    const int x1 = x0 + (x0 < w - 1), y1 = y0 + (y0 < h - 1);
    const float fx = u - float(x0), fy = v - float(y0);
    const float* r0 = data + size_t(y0) * size_t(w) * size_t(stride);
    const float* r1 = data + size_t(y1) * size_t(w) * size_t(stride);
    const float top = r0[x0 * stride] * (1 - fx) + r0[x1 * stride] * fx;
    const float bottom = r1[x0 * stride] * (1 - fx) + r1[x1 * stride] * fx;
    return top * (1 - fy) + bottom * fy;
}

// The vignetting gain 2^(stops · min(ρ, 1.5)^falloff) tabulated over ρ, so the pass avoids a
// power and an exponential per pixel. The gain is smooth for falloff ≥ 1, so linear
// interpolation between 4096 entries is far below what a picture can show.
class GainTable {
  public:
    static constexpr float kLast = 1.5f;
    static constexpr int kSize = 4096;

    GainTable(double stops, double falloff) {
        for (int i = 0; i <= kSize; ++i)
            gain_[size_t(i)] =
                float(std::exp2(stops * std::pow(double(i) / kSize * kLast, falloff)));
    }
    float operator()(float rho) const {
        const float t = std::min(rho, kLast) * (kSize / kLast);
        const int i = std::min(int(t), kSize - 1);
        const float f = t - float(i);
        return gain_[size_t(i)] * (1 - f) + gain_[size_t(i) + 1] * f;
    }

  private:
    std::array<float, kSize + 1> gain_;
};

}  // namespace

double zoom(double k, double width, double height) {
    const double a = width / 2, b = height / 2;
    if (k == 0 || !std::isfinite(k) || !(a > 0) || !(b > 0) || !std::isfinite(a * b)) return 1;
    const double D2 = a * a + b * b;
    double best = INFINITY;
    const auto consider = [&](double x, double y) {
        const double f = 1 + k * (x * x + y * y) / D2;
        if (!(f > 0.05)) return;
        // An edge point x samples at x f zoom, which must stay within ±a (and ±b for y).
        for (const double c : {a / (std::abs(x) * f), b / (std::abs(y) * f)})
            if (std::isfinite(c)) best = std::min(best, c);
    };
    for (int i = 0; i <= 64; ++i) {
        const double t = i / 64.0;
        consider(a * t, b);
        consider(a, b * t);
    }
    return std::isfinite(best) ? best : 1;
}

Warp warp(const LensFix& lens, int width, int height) {
    Warp w;
    w.k = slider(lens.distortion, -100, 100) / -100 * 0.18;
    if (w.k == 0) w.k = 0;  // no negative zero: 0 means "does not move"
    w.zoom = zoom(w.k, width, height);
    w.red = 1 - kCAStep * slider(lens.caRed, -100, 100);
    w.blue = 1 - kCAStep * slider(lens.caBlue, -100, 100);
    w.stops = slider(lens.vignette, -100, 100) / 100 * 1.5;
    const double mid = slider(lens.vignetteMid, 0, 100, 50) / 100;
    w.falloff = 1 + 4 * mid * mid;
    return w;
}

Image apply(const Image& image, const LensFix& lens, const Execution& exec) {
    if (image.empty()) return image;
    const int W = image.width(), H = image.height();
    const Warp wp = warp(lens, W, H);
    if (wp.isIdentity()) return image;

    const float cx = 0.5f * float(W), cy = 0.5f * float(H);
    const float hd = float(0.5 * std::hypot(double(W), double(H)));
    const float k = float(wp.k), zoom = float(wp.zoom);
    const float red = float(wp.red), blue = float(wp.blue);
    const bool moves = wp.moves(), split = wp.red != 1 || wp.blue != 1, shades = wp.stops != 0;
    const GainTable gain(wp.stops, wp.falloff);

    Image out = Image::forOverwrite(W, H);
    const bool done = img::parallelFor(0, H, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* in = image.row(y);
            float* o = out.row(y);
            const float dy = (float(y) + 0.5f - cy) / hd;
            for (int x = 0; x < W; ++x) {
                const float dx = (float(x) + 0.5f - cx) / hd;
                const float r2 = dx * dx + dy * dy;
                const float m = (1 + k * r2) * zoom;
                // The sampling offset from the centre in pixels; indices are 0.5 below positions.
                const float px = dx * m * hd, py = dy * m * hd;
                v4 c;
                if (moves) {
                    c = samplePixel(image, cx - 0.5f + px, cy - 0.5f + py);
                    if (split) {
                        c[0] = sampleChannel(image.data(), W, H, 4, cx - 0.5f + px * red,
                                             cy - 0.5f + py * red);
                        c[2] = sampleChannel(image.data() + 2, W, H, 4, cx - 0.5f + px * blue,
                                             cy - 0.5f + py * blue);
                    }
                } else {
                    c = img::simd::load(in + 4 * x);
                }
                if (shades) {
                    const float g = gain(std::sqrt(r2) * std::abs(m));
                    c[0] *= g, c[1] *= g, c[2] *= g;
                }
                img::simd::store(o + 4 * x, c);
            }
        }
    });
    return done ? out : Image{};
}

CAEstimate estimateCA(const Image& image, const Execution& exec) {
    if (image.empty()) return {};
    Image small = image;
    if (image.longEdge() > 800)
        small = img::lanczosScale(image, {float(800.0 / image.longEdge())}, exec);
    const int W = small.width(), H = small.height();
    if (small.empty() || W < 24 || H < 24) return {};

    // Band-passed detail of each channel: edges and texture, without the level of the colour and
    // without the finest pixel-to-pixel detail.
    const Image fine = img::gaussianBlur(small, {1.0f}, exec);
    const Image coarse = img::gaussianBlur(small, {4.0f}, exec);
    if (fine.empty() || coarse.empty()) return {};
    const size_t n = small.pixelCount();
    std::array<std::vector<float>, 3> detail;
    for (auto& plane : detail)
        plane.resize(n);
    for (size_t i = 0; i < n; ++i)
        for (int c = 0; c < 3; ++c)
            detail[size_t(c)][i] =
                fine.data()[4 * i + size_t(c)] - coarse.data()[4 * i + size_t(c)];
    const std::vector<float>& green = detail[1];

    // Sums over the inner rows (the border, where reads would clamp, is left out), each row on
    // its own and then the rows in order, so that no result depends on the threads.
    const float cx = 0.5f * float(W - 1), cy = 0.5f * float(H - 1);
    constexpr int kMargin = 6;
    using Sums = std::array<double, 5>;
    std::vector<Sums> rows(static_cast<size_t>(H));
    const auto sumRows = [&](const auto& rowSums) {
        img::parallelFor(kMargin, H - kMargin, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
                rows[size_t(y)] = rowSums(y);
        });
        Sums total{};
        for (int y = kMargin; y < H - kMargin; ++y)
            for (size_t k = 0; k < total.size(); ++k)
                total[k] += rows[size_t(y)][k];
        return total;
    };
    // Channel c read at radius × s, as apply's scale s reads it.
    std::vector<float> moved(n, 0.0f);
    const auto move = [&](int c, double s) {
        const float fs = float(s);
        const float* from = detail[size_t(c)].data();
        img::parallelFor(0, H, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const float v = cy + (float(y) - cy) * fs;
                float* o = moved.data() + size_t(y) * size_t(W);
                for (int x = 0; x < W; ++x)
                    o[x] = sampleChannel(from, W, H, 1, cx + (float(x) - cx) * fs, v);
            }
        });
    };
    // The squared difference between green's detail and channel c's after the scale s.
    const auto mismatch = [&](int c, double s) {
        move(c, s);
        return sumRows([&](int y) {
            Sums r{};
            const size_t row = size_t(y) * size_t(W);
            for (int x = kMargin; x < W - kMargin; ++x) {
                const double d = double(green[row + size_t(x)]) - moved[row + size_t(x)];
                r[0] += d * d;
            }
            return r;
        })[0];
    };

    // Gauss–Newton on the scale: the mismatch is linearised in s through the gradient of the
    // channel as read, so every step solves for s directly. A search over the mismatch itself
    // would be drawn toward scales whose bilinear reads smooth noise away.
    const auto fit = [&](int c) {
        double s = 1;
        for (int iteration = 0; iteration < 6; ++iteration) {
            move(c, s);
            const Sums t = sumRows([&](int y) {
                Sums r{};
                const float* m = moved.data() + size_t(y) * size_t(W);
                const float* g = green.data() + size_t(y) * size_t(W);
                for (int x = kMargin; x < W - kMargin; ++x) {
                    // d/ds of the read at radius × s: its gradient there, along p − centre.
                    const double j = (0.5 * (m[x + 1] - m[x - 1]) * (x - cx) +
                                      0.5 * (m[x + W] - m[x - W]) * (y - cy)) /
                                     s;
                    const double d = double(g[x]) - m[x];
                    r[0] += d * j, r[1] += j * j;
                    r[2] += double(g[x]) * m[x], r[3] += double(g[x]) * g[x];
                    r[4] += double(m[x]) * m[x];
                }
                return r;
            });
            // Channels that do not share their detail say nothing about their alignment.
            if (iteration == 0 && !(t[2] > 0.2 * std::sqrt(t[3] * t[4]))) return 0.0;
            if (!(t[1] > 0)) return 0.0;
            const double step = t[0] / t[1];
            s = std::clamp(s + step, 1 - 100 * kCAStep, 1 + 100 * kCAStep);
            if (std::abs(step) < 1e-3 * kCAStep) break;
        }
        const double amount = std::round((1 - s) / kCAStep * 10) / 10;
        // Only a measurable gain counts. Noise alone moves the mismatch by a few thousandths
        // (bilinear reads smooth it); a real fringe's correction takes away a large share.
        if (amount == 0 || exec.cancelled()) return 0.0;
        return mismatch(c, 1 - kCAStep * amount) < 0.98 * mismatch(c, 1) ? amount : 0.0;
    };
    const CAEstimate estimate{fit(0), fit(2)};
    return exec.cancelled() ? CAEstimate{} : estimate;
}

}  // namespace ql::LensCorrect
