#include "LanczosScale.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace ql::img {
namespace {

constexpr double lobes = 3;

double lanczos(double x) {
    x = std::abs(x);
    if (x < 1e-9) return 1;
    if (x >= lobes) return 0;
    const double px = M_PI * x;
    return lobes * std::sin(px) * std::sin(px / lobes) / (px * px);
}

/// For each output coordinate: the first input index and its normalised weights.
struct Taps {
    int count = 0;               // taps per output coordinate
    std::vector<int> first;      // first input index, clamped taps folded in
    std::vector<float> weights;  // count weights per output coordinate
    std::vector<int> indices;    // count clamped input indices per output coordinate
};

Taps taps(int inSize, int outSize) {
    const double factor = double(outSize) / inSize;
    // Shrinking stretches the kernel so that its cut-off follows the new sampling rate.
    const double stretch = factor < 1 ? 1 / factor : 1;
    const double support = lobes * stretch;
    Taps t;
    t.count = int(std::ceil(support)) * 2 + 1;
    t.first.resize(size_t(outSize));
    t.weights.assign(size_t(outSize) * size_t(t.count), 0.0f);
    t.indices.assign(size_t(outSize) * size_t(t.count), 0);
    for (int o = 0; o < outSize; ++o) {
        const double centre = (o + 0.5) / factor - 0.5;  // pixel centres onto pixel centres
        const int start = int(std::floor(centre - support)) + 1;
        double sum = 0;
        std::vector<double> w(size_t(t.count));
        for (int k = 0; k < t.count; ++k) {
            w[size_t(k)] = lanczos((start + k - centre) / stretch);
            sum += w[size_t(k)];
        }
        for (int k = 0; k < t.count; ++k) {
            const size_t at = size_t(o) * size_t(t.count) + size_t(k);
            t.weights[at] = float(w[size_t(k)] / sum);
            t.indices[at] = std::clamp(start + k, 0, inSize - 1);
        }
        t.first[size_t(o)] = start;
    }
    return t;
}

}  // namespace

Image resize(const Image& input, int width, int height, const Execution& exec) {
    if (input.empty() || width <= 0 || height <= 0) return input;
    if (width == input.width() && height == input.height()) return input;
    if (double(width) * height > double(1 << 30)) return input;

    // Vertical first: its inner loop runs along rows, so it streams and vectorises; the
    // horizontal pass then reads an image that already has the output's height.
    const Taps ty = taps(input.height(), height);
    const Taps tx = taps(input.width(), width);
    const int inW = input.width();

    Image mid = Image::forOverwrite(inW, height);
    bool done = parallelFor(0, height, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* out = mid.row(y);
            const float* w = &ty.weights[size_t(y) * size_t(ty.count)];
            const int* idx = &ty.indices[size_t(y) * size_t(ty.count)];
            std::fill_n(out, size_t(inW) * 4, 0.0f);
            for (int k = 0; k < ty.count; ++k) {
                if (w[k] == 0) continue;
                const float* in = input.row(idx[k]);
                const float wk = w[k];
                for (int i = 0; i < inW * 4; ++i)
                    out[i] += wk * in[i];
            }
        }
    });
    if (!done) return {};

    Image out = Image::forOverwrite(width, height);
    done = parallelFor(0, height, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* in = mid.row(y);
            float* o = out.row(y);
            for (int x = 0; x < width; ++x) {
                const float* w = &tx.weights[size_t(x) * size_t(tx.count)];
                const int* idx = &tx.indices[size_t(x) * size_t(tx.count)];
                float acc[4] = {0, 0, 0, 0};
                for (int k = 0; k < tx.count; ++k) {
                    const float* p = in + size_t(idx[k]) * 4;
                    for (int c = 0; c < 4; ++c)
                        acc[c] += w[k] * p[c];
                }
                for (int c = 0; c < 3; ++c)
                    o[x * 4 + c] = acc[c];
                // Weights that total 1 still sum an opaque alpha to a few steps off 1 in float;
                // snapped back, an opaque picture stays opaque, and every later stage keeps its
                // path for opaque pixels.
                o[x * 4 + 3] = std::abs(acc[3] - 1) < 1e-5f ? 1.0f : acc[3];
            }
        }
    });
    return done ? out : Image{};
}

Image lanczosScale(const Image& input, const LanczosScaleParams& p, const Execution& exec) {
    if (input.empty()) return input;
    if (!(p.scale > 0) || !(p.aspectRatio > 0) || !std::isfinite(p.scale) ||
        !std::isfinite(p.aspectRatio))
        return input;
    const double w = std::max(1.0, std::round(input.width() * double(p.scale) * p.aspectRatio));
    const double h = std::max(1.0, std::round(input.height() * double(p.scale)));
    if (w * h > double(1 << 30)) return input;
    return resize(input, int(w), int(h), exec);
}

}  // namespace ql::img
