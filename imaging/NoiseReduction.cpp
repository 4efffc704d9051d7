#include "NoiseReduction.h"
#include "Simd.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace ql::img {
namespace {

using namespace simd;

v4 clamp01(v4 v) {
    const v4 zero = splat(0), one = splat(1);
    v = v > zero ? v : zero;
    return v < one ? v : one;
}

constexpr int reach = 2, side = 2 * reach + 1;
enum Plane { red, green, blue, alpha, guide, lum, planes };

// One source row as planes, extended by clamped pixels: `reach` before, reach + 4 after (the
// last group of four may run past the row).
class Row {
  public:
    explicit Row(int width) : stride_(size_t(width) + 2 * reach + 4), data_(planes * stride_) {}

    void fill(const float* row, int width) {
        for (int i = 0; i < int(stride_); ++i) {
            const float* px = row + 4 * std::clamp(i - reach, 0, width - 1);
            const float y = luma(px[0], px[1], px[2]);
            float* at = data_.data() + i;
            at[red * stride_] = px[0];
            at[green * stride_] = px[1];
            at[blue * stride_] = px[2];
            at[alpha * stride_] = px[3];
            at[guide * stride_] = std::sqrt(std::max(y, 0.0f));
            at[lum * stride_] = y;
        }
    }
    // Plane p from x - reach on.
    const float* plane(Plane p) const { return data_.data() + p * stride_; }

  private:
    size_t stride_;
    std::vector<float> data_;
};

struct Settings {
    float noise, sharpness;
    float spatial[side][side];  // sums to 1
};

template <bool smooth>
void filterRow(const Row* const* rows, int width, const Settings& s, float* out) {
    const v4 rangeScale = splat(smooth ? 1 / (4 * s.noise * s.noise) : 0);
    const Row& centre = *rows[reach];
    for (int x = 0; x < width; x += 4) {
        const v4 gc = load(centre.plane(guide) + x + reach);
        const v4 yc = load(centre.plane(lum) + x + reach);
        v4 acc[4] = {}, weight = {}, yMean = {}, gMean = {};
        for (int dy = 0; dy < side; ++dy) {
            const Row& row = *rows[dy];
            for (int dx = 0; dx < side; ++dx) {
                const float sw = s.spatial[dy][dx];
                const v4 g = load(row.plane(guide) + x + dx);
                yMean += sw * load(row.plane(lum) + x + dx);
                gMean += sw * g;
                if constexpr (smooth) {
                    const v4 d = g - gc;
                    v4 t = 1.0f - d * d * rangeScale;
                    t = t > 0.0f ? t : splat(0);
                    const v4 w = sw * t * t;
                    weight += w;
                    for (int c = 0; c < 4; ++c)
                        acc[c] += w * load(row.plane(Plane(c)) + x + dx);
                }
            }
        }
        if constexpr (smooth) {
            for (int c = 0; c < 4; ++c)
                acc[c] /= weight;
        } else {
            for (int c = 0; c < 4; ++c)
                acc[c] = load(centre.plane(Plane(c)) + x + reach);
        }
        // Gate the sharpening: 0 within the noise level, 1 from twice it on.
        v4 gate = splat(1);
        if constexpr (smooth) {
            const v4 diff = gc - gMean;
            const v4 e = clamp01(((diff < 0.0f ? -diff : diff) - s.noise) / s.noise);
            gate = e * e * (3.0f - 2.0f * e);
        }
        const v4 delta = s.sharpness * gate * (yc - yMean);
        for (int i = 0; i < 4 && x + i < width; ++i) {
            float* o = out + 4 * (x + i);
            o[0] = acc[0][i] + delta[i];
            o[1] = acc[1][i] + delta[i];
            o[2] = acc[2][i] + delta[i];
            o[3] = acc[3][i];
        }
    }
}

}  // namespace

Image noiseReduction(const Image& input, const NoiseReductionParams& p, const Execution& exec) {
    Settings s;
    s.noise = p.noiseLevel >= 0 ? std::min(p.noiseLevel, 0.1f) : 0;  // NaN fails both
    s.sharpness = p.sharpness >= 0 ? std::min(p.sharpness, 2.0f) : 0;
    if (input.empty() || (s.noise == 0 && s.sharpness == 0)) return input;
    double sum = 0;
    for (int dy = -reach; dy <= reach; ++dy)
        for (int dx = -reach; dx <= reach; ++dx)
            sum += std::exp(-(dx * dx + dy * dy) / 4.5);
    for (int dy = -reach; dy <= reach; ++dy)
        for (int dx = -reach; dx <= reach; ++dx)
            s.spatial[dy + reach][dx + reach] = float(std::exp(-(dx * dx + dy * dy) / 4.5) / sum);

    const int w = input.width(), h = input.height();
    Image out = Image::forOverwrite(w, h);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        // A ring of the rows around the current one, each converted once.
        std::vector<Row> store(side, Row(w));
        Row* rows[side];
        for (int i = 0; i < side; ++i) {
            store[size_t(i)].fill(input.row(std::clamp(y0 - reach + i, 0, h - 1)), w);
            rows[i] = &store[size_t(i)];
        }
        for (int y = y0; y < y1; ++y) {
            if (y > y0) {
                Row* reused = rows[0];
                std::copy(rows + 1, rows + side, rows);
                reused->fill(input.row(std::min(y + reach, h - 1)), w);
                rows[side - 1] = reused;
            }
            if (s.noise > 0)
                filterRow<true>(rows, w, s, out.row(y));
            else
                filterRow<false>(rows, w, s, out.row(y));
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
