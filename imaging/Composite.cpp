#include "Composite.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "PixelMap.h"

namespace ql::img {

namespace {

bool sameSize(const Image& a, const Image& b) {
    return a.width() == b.width() && a.height() == b.height();
}

}  // namespace

namespace {

// The mask's red channel, clamped to [0, 1], along output row y: a mask of another size is
// stretched over the picture, sampled bilinearly between its pixel centres.
class MaskRows {
  public:
    MaskRows(const Image& mask, int width, int height)
        : mask_(mask), same_(mask.width() == width && mask.height() == height), height_(height) {
        if (same_) return;
        for (int x = 0; x < width; ++x) {
            const auto [at, weight] = tap(x, width, mask.width());
            x0_.push_back(at), wx_.push_back(weight);
        }
    }
    void row(int y, float* m) const {
        const int w = int(same_ ? mask_.width() : x0_.size());
        if (same_) {
            const float* r = mask_.row(y);
            for (int x = 0; x < w; ++x)
                m[x] = clamped(r[4 * x]);
            return;
        }
        const auto [y0, wy] = tap(y, height_, mask_.height());
        const float *a = mask_.row(y0), *b = mask_.row(std::min(y0 + 1, mask_.height() - 1));
        const int last = mask_.width() - 1;
        for (int x = 0; x < w; ++x) {
            const int i = x0_[size_t(x)], j = std::min(i + 1, last);
            const float top = a[4 * i] + (a[4 * j] - a[4 * i]) * wx_[size_t(x)];
            const float bottom = b[4 * i] + (b[4 * j] - b[4 * i]) * wx_[size_t(x)];
            m[x] = clamped(top + (bottom - top) * wy);
        }
    }

  private:
    static float clamped(float r) { return r > 0 ? (r < 1 ? r : 1) : 0; }  // NaN gives 0
    // The first of the two mask pixels around output pixel i's centre, and the second's weight.
    static std::pair<int, float> tap(int i, int out, int in) {
        const double at = std::clamp((i + 0.5) * in / out - 0.5, 0.0, double(in - 1));
        const int first = int(at);
        return {first, float(at - first)};
    }

    const Image& mask_;
    bool same_;
    int height_;
    std::vector<int> x0_;
    std::vector<float> wx_;
};

}  // namespace

Image blendWithMask(Image input, Image background, const Image& mask, const Execution& exec) {
    if (input.empty()) return input;
    if (!sameSize(input, background) || mask.empty()) return background;
    const int w = input.width();
    const MaskRows masks(mask, w, input.height());
    Image out = Image::resultFor(background, input);
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        std::vector<float> row(static_cast<size_t>(w));
        for (int y = y0; y < y1; ++y) {
            masks.row(y, row.data());
            const float *t = input.row(y), *b = background.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x) {
                if (x % 8 == 0) prefetchAhead(t + 4 * x), prefetchAhead(b + 4 * x);
                const float m = row[size_t(x)];
                for (int c = 0; c < 4; ++c)
                    o[4 * x + c] = t[4 * x + c] * m + b[4 * x + c] * (1 - m);
            }
        }
    });
    return done ? out : Image{};
}

Image dissolve(const Image& input, const Image& target, const DissolveParams& p,
               const Execution& exec) {
    if (input.empty() || !sameSize(input, target)) return input;
    const float t = p.amount > 0 ? std::min(p.amount, 1.0f) : 0;
    if (t == 0) return input;
    if (t == 1) return target;
    return mapPixels2(input, target, exec, [t](const float* a, const float* b, float* out) {
        for (int c = 0; c < 4; ++c)
            out[c] = a[c] + (b[c] - a[c]) * t;
    });
}

Image sourceOver(const Image& input, const Image& background, const Execution& exec) {
    if (input.empty()) return input;
    if (!sameSize(input, background)) return background;
    return mapPixels2(input, background, exec, [](const float* s, const float* d, float* out) {
        const float keep = 1 - s[3];
        for (int c = 0; c < 4; ++c)
            out[c] = s[c] + d[c] * keep;
    });
}

}  // namespace ql::img
