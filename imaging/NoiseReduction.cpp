#include "NoiseReduction.h"
#include "GaussianBlur.h"
#include "PixelMap.h"
#include "Simd.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace ql::img {
namespace {

using namespace simd;

// A window of 5 × 5 taps; at a scale above 1 the taps spread apart (a dilated window), so the
// filter covers as much of the subject as it would on the smaller picture, at the same cost.
constexpr int taps = 5;
enum RowPlane { red, green, blue, alpha, guide, planes };

// One source row as planes, extended by clamped pixels: `reach` before, reach + 8 after (the
// last group of eight may run past the row).
class Row {
  public:
    Row(int width, int reach)
        : reach_(reach), stride_(size_t(width) + 2 * size_t(reach) + 8), data_(planes * stride_) {}

    // With `lumas`, the row's own luma goes there too.
    void fill(const float* row, int width, float* lumas) {
        for (int i = 0; i < int(stride_); ++i) {
            const int x = std::clamp(i - reach_, 0, width - 1);
            const float* px = row + 4 * x;
            const float y = luma(px[0], px[1], px[2]);
            if (lumas && x == i - reach_) lumas[x] = y;
            float* at = data_.data() + i;
            at[red * stride_] = px[0];
            at[green * stride_] = px[1];
            at[blue * stride_] = px[2];
            at[alpha * stride_] = px[3];
            at[guide * stride_] = std::sqrt(std::max(y, 0.0f));
        }
    }
    // Plane p from x - reach on.
    const float* plane(RowPlane p) const { return data_.data() + p * stride_; }

  private:
    int reach_;
    size_t stride_;
    std::vector<float> data_;
};

struct Settings {
    float noise, sharpness;
    int reach;                  // the farthest tap, in pixels
    int offset[taps];           // tap positions relative to the centre, in pixels
    float spatial[taps][taps];  // sums to 1
};

// The range-weighted average of one row, eight pixels at a time; `rows` holds the 2·reach + 1
// rows around it. Built for wider vector registers too where the processor has them.
QL_KERNEL_FOR_WIDE_REGISTERS void smoothRow(const Row* const* rows, int width, const Settings& s,
                                            float* out) {
    const v8 rangeScale = v8{} + 1 / (4 * s.noise * s.noise);
    const int reach = s.reach;
    const Row& centre = *rows[reach];
    for (int x = 0; x < width; x += 8) {
        const v8 gc = load8(centre.plane(guide) + x + reach);
        v8 acc[4] = {}, weight = {};
        for (int ty = 0; ty < taps; ++ty) {
            const Row& row = *rows[reach + s.offset[ty]];
            for (int tx = 0; tx < taps; ++tx) {
                const int dx = reach + s.offset[tx];
                const v8 d = load8(row.plane(guide) + x + dx) - gc;
                v8 t = 1.0f - d * d * rangeScale;
                t = t > 0.0f ? t : 0.0f;
                const v8 w = s.spatial[ty][tx] * t * t;
                weight += w;
                for (int c = 0; c < 4; ++c)
                    acc[c] += w * load8(row.plane(RowPlane(c)) + x + dx);
            }
        }
        for (int i = 0; i < 8 && x + i < width; ++i) {
            float* o = out + 4 * (x + i);
            for (int c = 0; c < 4; ++c)
                o[c] = acc[c][i] / weight[i];
        }
    }
}

// The smoothed picture; with `lumas`, the input's luma as well, taken as its rows are read.
Image smooth(const Image& input, float noise, float scale, const Execution& exec, Plane* lumas) {
    Settings s;
    s.noise = noise;
    for (int t = 0; t < taps; ++t)
        s.offset[t] = int(std::lround((t - taps / 2) * scale));
    s.reach = s.offset[taps - 1];
    // Weights by the distance on the smaller picture's grid, so every scale weighs alike.
    double sum = 0, weights[taps][taps];
    for (int ty = 0; ty < taps; ++ty)
        for (int tx = 0; tx < taps; ++tx) {
            const double dx = s.offset[tx] / scale, dy = s.offset[ty] / scale;
            weights[ty][tx] = std::exp(-(dx * dx + dy * dy) / 4.5);
            sum += weights[ty][tx];
        }
    for (int ty = 0; ty < taps; ++ty)
        for (int tx = 0; tx < taps; ++tx)
            s.spatial[ty][tx] = float(weights[ty][tx] / sum);

    const int w = input.width(), h = input.height();
    Image out = Image::forOverwrite(w, h);
    if (lumas) *lumas = Plane::forOverwrite(w, h);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        // A ring of the rows around the current one, each converted once. Each of this range's
        // own rows passes through it, and gives its luma then.
        const auto fill = [&](Row& row, int y) {
            row.fill(input.row(y), w, lumas && y >= y0 && y < y1 ? lumas->row(y) : nullptr);
        };
        const int reach = s.reach, side = 2 * reach + 1;
        std::vector<Row> store(static_cast<size_t>(side), Row(w, reach));
        std::vector<Row*> rows(static_cast<size_t>(side));
        for (int i = 0; i < side; ++i) {
            fill(store[size_t(i)], std::clamp(y0 - reach + i, 0, h - 1));
            rows[size_t(i)] = &store[size_t(i)];
        }
        for (int y = y0; y < y1; ++y) {
            if (y > y0) {
                Row* reused = rows[0];
                std::copy(rows.begin() + 1, rows.end(), rows.begin());
                fill(*reused, std::min(y + reach, h - 1));
                rows[size_t(side - 1)] = reused;
            }
            smoothRow(rows.data(), w, s, out.row(y));
        }
    });
    return done ? out : Image{};
}

// Edge sharpening at a wider reach, added to the already smoothed picture: where √luma differs from
// its Gaussian mean by more than the noise level, sharpness × (luma − mean luma). Only luma is
// blurred: a quarter of the work of blurring the colour and taking its luma.
Image sharpenEdges(const Plane& lumas, Image smoothed, float noise, float sharpness, float sigma,
                   const Execution& exec) {
    return detail::withLumaAndMean(
        lumas, std::move(smoothed), sigma, exec,
        [noise, sharpness](const float* sm, float y, float m, float* o) {
            float gate = 1;
            if (noise > 0) {
                const float diff =
                    std::abs(std::sqrt(std::max(y, 0.0f)) - std::sqrt(std::max(m, 0.0f)));
                const float e = std::clamp((diff - noise) / noise, 0.0f, 1.0f);
                gate = e * e * (3 - 2 * e);
            }
            const float delta = sharpness * gate * (y - m);
            o[0] = sm[0] + delta, o[1] = sm[1] + delta, o[2] = sm[2] + delta, o[3] = sm[3];
        });
}

}  // namespace

Image noiseReduction(Image input, const NoiseReductionParams& p, const Execution& exec) {
    const float noise = p.noiseLevel >= 0 ? std::min(p.noiseLevel, 0.1f) : 0;  // NaN fails both
    const float sharpness = p.sharpness >= 0 ? std::min(p.sharpness, 2.0f) : 0;
    const float scale = p.scale > 1 && std::isfinite(p.scale) ? std::min(p.scale, 64.0f) : 1;
    if (input.empty() || (noise == 0 && sharpness == 0)) return input;
    // The edges are judged on the input's luma, which the smoothing takes as it reads the input.
    Plane lumas;
    Image smoothed =
        noise > 0 ? smooth(input, noise, scale, exec, sharpness > 0 ? &lumas : nullptr) : input;
    if (smoothed.empty() || sharpness == 0) return smoothed;
    if (noise == 0) lumas = lumaPlane(input, exec);
    input = {};  // a handed-over input goes before the mean is taken
    // σ 1.2 matches the spread of the 5 × 5 window's weights.
    return sharpenEdges(lumas, std::move(smoothed), noise, sharpness, 1.2f * scale, exec);
}

}  // namespace ql::img
