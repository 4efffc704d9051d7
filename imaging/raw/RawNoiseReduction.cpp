#include "RawNoiseReduction.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <vector>

#include "imaging/Simd.h"

namespace ql::img {
namespace {

using namespace simd;
using v4i = int __attribute__((vector_size(16)));

// Radii in sensor pixels: base + gain × amount.
constexpr float lumaBaseRadius = 1, lumaRadiusGain = 2;
constexpr float chromaBaseRadius = 8, chromaRadiusGain = 8;
// At amount 1, the deviation treated as noise: of √-encoded luma, and of R − Y or B − Y at
// mid-grey (it follows brightness like shot noise does).
constexpr float lumaThreshold = 0.08f;
constexpr float chromaThreshold = 0.06f;
// Luma variation of the colour pass's windows below about this (encoded) is not used to explain
// chroma: it could be noise.
constexpr float lumaFitThreshold = 0.04f;
constexpr float midGrey = 0.18f;
// Read noise as an equivalent signal: the √ encoding and the chroma threshold level off below it.
constexpr float darkFloor = 0.004f;
// Pixels beyond this (or non-finite) pass through and enter the statistics as 0, so squares and
// sums stay finite.
constexpr float valueLimit = 65504;
// Luminance windows that straddle an edge get less say in the pixels they cover; this floor keeps
// the sum of their weights positive.
constexpr float minWeight = 1e-6f;
// Keeps ε positive when an amount is vanishingly small.
constexpr float minEps = 1e-30f;
// Block sizes of the streamed passes. Fixed, so results never depend on the thread count.
constexpr int lumaBlock = 96, chromaBlock = 16;

// Per-pixel math runs on one channel of four pixels at a time.
v4 vmax(v4 a, v4 b) {
    return a > b ? a : b;
}
v4 vmin(v4 a, v4 b) {
    return a < b ? a : b;
}
v4 vabs(v4 a) {
    return a < 0 ? -a : a;
}
v4 vsqrt(v4 a) {
#if defined(__SSE__)
    return __builtin_ia32_sqrtps(a);
#else
    return v4{std::sqrt(a[0]), std::sqrt(a[1]), std::sqrt(a[2]), std::sqrt(a[3])};
#endif
}
v4 lumaOf(v4 r, v4 g, v4 b) {
    return lumaR * r + lumaG * g + lumaB * b;
}
// All of r, g, b finite and within the limit.
v4i usable(v4 r, v4 g, v4 b) {
    return (vabs(r) <= valueLimit) & (vabs(g) <= valueLimit) & (vabs(b) <= valueLimit);
}

// Four pixels to four channels of them, and back (the same shuffle).
[[gnu::always_inline]] inline void transpose(v4& a, v4& b, v4& c, v4& d) {
    const v4 ab0 = __builtin_shuffle(a, b, v4i{0, 4, 1, 5});
    const v4 ab1 = __builtin_shuffle(a, b, v4i{2, 6, 3, 7});
    const v4 cd0 = __builtin_shuffle(c, d, v4i{0, 4, 1, 5});
    const v4 cd1 = __builtin_shuffle(c, d, v4i{2, 6, 3, 7});
    a = __builtin_shuffle(ab0, cd0, v4i{0, 1, 4, 5});
    b = __builtin_shuffle(ab0, cd0, v4i{2, 3, 6, 7});
    c = __builtin_shuffle(ab1, cd1, v4i{0, 1, 4, 5});
    d = __builtin_shuffle(ab1, cd1, v4i{2, 3, 6, 7});
}

// Pixels x…x + 3 of a row of n as channels; past the end the last pixel repeats.
[[gnu::always_inline]] inline void loadChannels(const float* row, int x, int n, v4 (&c)[4]) {
    if (x + 4 <= n) {
        for (int i = 0; i < 4; ++i)
            c[i] = load(row + 4 * (x + i));
    } else {
        for (int i = 0; i < 4; ++i)
            c[i] = load(row + 4 * std::min(x + i, n - 1));
    }
    transpose(c[0], c[1], c[2], c[3]);
}
// The inverse: stores only the pixels before n.
[[gnu::always_inline]] inline void storeChannels(float* row, int x, int n, v4 (&c)[4]) {
    transpose(c[0], c[1], c[2], c[3]);
    const int count = std::min(4, n - x);
    for (int i = 0; i < count; ++i)
        store(row + 4 * (x + i), c[i]);
}

// √ encoding, offset by the dark floor so noise near black is not blown up; linear below 0 with
// matching slope so slightly negative values stay ordered and invertible.
const float rootFloor = std::sqrt(darkFloor);
v4 encode(v4 y) {
    return y >= 0 ? vsqrt(vmax(y + darkFloor, splat(0))) - rootFloor : y * (0.5f / rootFloor);
}
v4 decode(v4 f) {
    return f >= 0 ? (f + rootFloor) * (f + rootFloor) - darkFloor : f * (2 * rootFloor);
}
// Encoded level from which the brightness correction applies in full.
const float fullCorrection = std::sqrt(5 * darkFloor) - rootFloor;

// A box of radius r plus a fractional weight on ±(r + 1), so radii need not be whole pixels.
struct Box {
    int r = 0;
    float frac = 0;
    float norm2 = 1;  // 1 / total weight of the 2D box
    explicit Box(float radius) {
        r = int(radius);
        frac = radius - float(r);
        const float total = float(2 * r + 1) + 2 * frac;
        norm2 = 1 / (total * total);
    }
    int pad() const { return r + 1; }
};

void replicateEnds(v4* row, int n, int pad) {
    std::fill(row - pad, row, row[0]);
    std::fill(row + n, row + n + pad, row[n - 1]);
}

// Unnormalised box sums along a row whose ends are replicated b.pad() pixels further. The running
// sum restarts every few hundred pixels so rounding cannot build up along a long row.
void boxAlong(const v4* in, int n, const Box& b, v4* out) {
    constexpr int restart = 256;
    const int r = b.r;
    const float frac = b.frac;
    for (int x0 = 0; x0 < n; x0 += restart) {
        v4 s = in[x0 - r];
        for (int k = -r + 1; k <= r; ++k)
            s += in[x0 + k];
        const int x1 = std::min(n, x0 + restart);
        for (int x = x0;;) {
            out[x] = s + frac * (in[x - r - 1] + in[x + r + 1]);
            if (++x == x1) break;
            s += in[x + r] - in[x - r - 1];
        }
    }
}

// The vertical half of a box, streamed: rows come in order as horizontal sums from a source,
// src(row, out), and leave as normalised means. Sources clamp rows beyond the image themselves.
// Rows hold `width` pixels rounded up to four; what sources leave unwritten stays 0.
class Column {
  public:
    Column(const Box& b, int width)
        : b_(b),
          w_((width + 3) & ~3),
          n_(2 * b.r + 3),
          ring_(size_t(n_) * size_t(w_)),
          sum_(w_),
          mean_(w_) {}

    // Positions at row y and returns its mean.
    template <class Source>
    const v4* start(int y, Source&& src) {
        y_ = y;
        for (int t = y - b_.r - 1; t <= y + b_.r + 1; ++t)
            src(t, slot(t));
        std::fill(sum_.begin(), sum_.end(), splat(0));
        for (int t = y - b_.r; t <= y + b_.r; ++t) {
            const v4* s = slot(t);
            for (int x = 0; x < w_; ++x)
                sum_[size_t(x)] += s[x];
        }
        const v4 *above = slot(y - b_.r - 1), *below = slot(y + b_.r + 1);
        for (int x = 0; x < w_; ++x)
            mean_[size_t(x)] = (sum_[size_t(x)] + b_.frac * (above[x] + below[x])) * b_.norm2;
        return mean_.data();
    }

    // Moves to the next row and returns its mean.
    template <class Source>
    const v4* advance(Source&& src) {
        const int y = y_++;
        src(y + b_.r + 2, slot(y + b_.r + 2));  // replaces row y - r - 1, no longer needed
        const v4 *leaving = slot(y - b_.r), *entering = slot(y + b_.r + 1);
        const v4* below = slot(y + b_.r + 2);
        const float frac = b_.frac, norm = b_.norm2;
        for (int x = 0; x < w_; ++x) {
            const v4 s = sum_[size_t(x)] += entering[x] - leaving[x];
            mean_[size_t(x)] = (s + frac * (leaving[x] + below[x])) * norm;
        }
        return mean_.data();
    }

    const v4* mean() const { return mean_.data(); }

  private:
    v4* slot(int t) { return ring_.data() + size_t(((t % n_) + n_) % n_) * size_t(w_); }

    Box b_;
    int w_, n_, y_ = 0;
    std::vector<v4> ring_, sum_, mean_;
};

// One row of `width` pixels (rounded up to four) with room for replicated ends.
struct PaddedRow {
    PaddedRow(int width, int pad) : pad(pad), data(size_t((width + 3) & ~3) + 2 * size_t(pad)) {}
    v4* at() { return data.data() + pad; }
    int pad;
    std::vector<v4> data;
};

// Colour: the chroma differences d = (R − Y, B − Y) are filtered with two guides. Per window, d is
// fitted as α·f + β from encoded luma f, so chroma that changes along with luma (a coloured object
// against a dark background) is explained by the luma edge and does not spread. What the fit
// leaves, of variance v, is treated like a self-guided filter: a = v² / (v² + ε²), ε following
// the window's brightness like shot noise, so colour edges of equal luma keep too. The window's
// model of a pixel is a·d + (1 − a)(α·f + β); a pixel takes the mean of the models of the windows
// over it. Statistics and coefficients live on a grid of squares of a quarter of the radius, at
// least 3 pixels (finer, the grid would cost more than the pixels); the coefficients are
// interpolated back, each pixel applying them to its own d and f.
class ChromaFilter {
  public:
    ChromaFilter(int width, int height, float radius, float noiseScale)
        : w_(width),
          h_(height),
          cell_(std::clamp(int(radius / 4), 3, 16)),
          box_(radius / float(cell_)),
          spread_(radius / float(cell_) / 4),
          gw_((w_ + cell_ - 1) / cell_),
          gh_((h_ + cell_ - 1) / cell_),
          stride_((gw_ + 3) & ~3),
          lumaEps_(std::max(lumaFitThreshold * lumaFitThreshold * noiseScale * noiseScale, minEps)),
          grid_(std::make_unique_for_overwrite<v4[]>(2 * size_t(stride_) * size_t(gh_))),
          columns_(size_t((w_ + 3) & ~3)) {
        for (size_t x = 0; x < columns_.size(); ++x)
            columns_[x] = tap(std::min(int(x), w_ - 1), gw_);
    }

    // Fills the grid with per-square means of {d_r, d_b, |d|², Y} and {f, f², f·d_r, f·d_b},
    // then turns them into the window-averaged coefficients {a, (1 − a)α_r, (1 − a)α_b,
    // (1 − a)β_r} and {(1 − a)β_b, 0, 0, 0}. Grid rows hold the first four for all squares,
    // then the second. False when cancelled.
    bool solve(const Image& in, float epsPerLevel, const Execution& exec) {
        const size_t rowSize = 2 * size_t(stride_);
        const auto means = std::make_unique_for_overwrite<v4[]>(rowSize * size_t(gh_));
        const bool gathered = parallelFor(0, gh_, exec, [&](int t0, int t1) {
            std::vector<v4> stats(2 * size_t((w_ + 3) & ~3));
            for (int t = t0; t < t1; ++t)
                gather(in, t, stats.data(), means.get() + size_t(t) * rowSize);
        });
        if (!gathered) return false;
        const int blocks = (gh_ + chromaBlock - 1) / chromaBlock;
        return parallelFor(0, blocks, exec, [&](int b0, int b1) {
            Column stats(box_, 2 * stride_), coefs(spread_, 2 * stride_);
            PaddedRow first(gw_, box_.pad()), second(gw_, box_.pad());
            // Box-filters the two halves of a grid row separately.
            auto boxRow = [&](const v4* from, const Box& box, v4* dst) {
                std::copy_n(from, gw_, first.at());
                std::copy_n(from + stride_, gw_, second.at());
                replicateEnds(first.at(), gw_, box.pad());
                replicateEnds(second.at(), gw_, box.pad());
                boxAlong(first.at(), gw_, box, dst);
                boxAlong(second.at(), gw_, box, dst + stride_);
            };
            auto statsRow = [&](int t, v4* dst) {
                boxRow(means.get() + size_t(std::clamp(t, 0, gh_ - 1)) * rowSize, box_, dst);
            };
            std::vector<v4> window(rowSize);
            auto coefRow = [&](int, v4* dst) {
                const v4* m = stats.mean();
                for (int g = 0; g < gw_; g += 4) {
                    v4 dr = m[g], db = m[g + 1], square = m[g + 2], lum = m[g + 3];
                    transpose(dr, db, square, lum);
                    const v4* n = m + stride_;
                    v4 f = n[g], f2 = n[g + 1], fr = n[g + 2], fb = n[g + 3];
                    transpose(f, f2, fr, fb);
                    const v4 toFit = 1 / (vmax(f2 - f * f, splat(0)) + lumaEps_);
                    const v4 cr = fr - f * dr, cb = fb - f * db;
                    const v4 alphaR = cr * toFit, alphaB = cb * toFit;
                    const v4 left = square - dr * dr - db * db - alphaR * cr - alphaB * cb;
                    const v4 var = vmax(left, splat(0));
                    const v4 eps =
                        vmax(epsPerLevel * (vmax(lum, splat(0)) + darkFloor), splat(minEps));
                    const v4 a = var * var / (var * var + eps * eps);
                    v4 c[4] = {a, (1 - a) * alphaR, (1 - a) * alphaB, (1 - a) * (dr - alphaR * f)};
                    transpose(c[0], c[1], c[2], c[3]);
                    std::copy(c, c + 4, window.begin() + g);
                    v4 d[4] = {(1 - a) * (db - alphaB * f), splat(0), splat(0), splat(0)};
                    transpose(d[0], d[1], d[2], d[3]);
                    std::copy(d, d + 4, window.begin() + stride_ + g);
                }
                boxRow(window.data(), spread_, dst);
                stats.advance(statsRow);
            };
            for (int b = b0; b < b1; ++b) {
                const int t0 = b * chromaBlock, t1 = std::min(gh_, t0 + chromaBlock);
                stats.start(t0 - box_.r - 1, statsRow);
                const v4* sums = coefs.start(t0, coefRow);
                for (int t = t0; t < t1; ++t) {
                    if (t > t0) sums = coefs.advance(coefRow);
                    std::copy_n(sums, rowSize, grid_.get() + size_t(t) * rowSize);
                }
            }
        });
    }

    // The coefficients of image row y: two per pixel, for the row's width rounded up to four.
    // `line` holds two grid rows.
    void coefficients(int y, v4* line, v4* out) const {
        const Tap ty = tap(y, gh_);
        const size_t rowSize = 2 * size_t(stride_);
        const v4* r0 = grid_.get() + size_t(ty.g0) * rowSize;
        const v4* r1 = grid_.get() + size_t(ty.g1) * rowSize;
        for (size_t g = 0; g < rowSize; ++g)
            line[g] = r0[g] + ty.t * (r1[g] - r0[g]);
        const v4* second = line + stride_;
        for (size_t x = 0; x < columns_.size(); ++x) {
            const Tap& tx = columns_[x];
            out[2 * x] = line[tx.g0] + tx.t * (line[tx.g1] - line[tx.g0]);
            out[2 * x + 1] = second[tx.g0] + tx.t * (second[tx.g1] - second[tx.g0]);
        }
    }
    int lineSize() const { return 2 * stride_; }

  private:
    // Bilinear weights between square centres.
    struct Tap {
        int g0, g1;
        float t;
    };
    Tap tap(int i, int n) const {
        const float u = std::max((float(i) + 0.5f) / float(cell_) - 0.5f, 0.0f);
        const int g0 = std::min(int(u), n - 1);
        return Tap{g0, std::min(g0 + 1, n - 1), std::min(u - float(g0), 1.0f)};
    }

    void gather(const Image& in, int t, v4* stats, v4* to) const {
        const int y0 = t * cell_, y1 = std::min(h_, y0 + cell_);
        std::fill_n(to, 2 * stride_, splat(0));
        for (int y = y0; y < y1; ++y) {
            const float* next = in.row(std::min(y + 1, h_ - 1));
            for (int x = 0; x < w_; x += 4) {
                __builtin_prefetch(next + 4 * x);
                v4 c[4];
                loadChannels(in.row(y), x, w_, c);
                const v4i ok = usable(c[0], c[1], c[2]);
                const v4 lum = lumaOf(c[0], c[1], c[2]), zero = splat(0);
                const v4 dr = ok ? c[0] - lum : zero, db = ok ? c[2] - lum : zero;
                const v4 f = ok ? encode(lum) : zero;
                v4 lanes[8] = {dr,     db,    dr * dr + db * db, ok ? lum : zero, f, f * f,
                               f * dr, f * db};
                transpose(lanes[0], lanes[1], lanes[2], lanes[3]);
                transpose(lanes[4], lanes[5], lanes[6], lanes[7]);
                for (int i = 0; i < 4; ++i) {
                    stats[2 * (x + i)] = lanes[i];
                    stats[2 * (x + i) + 1] = lanes[4 + i];
                }
            }
            for (int g = 0, x = 0; g < gw_; ++g) {
                v4 s = to[g], u = to[stride_ + g];
                for (const int xe = std::min(w_, x + cell_); x < xe; ++x)
                    s += stats[2 * x], u += stats[2 * x + 1];
                to[g] = s;
                to[stride_ + g] = u;
            }
        }
        for (int g = 0; g < gw_; ++g) {
            const float norm = 1 / float((y1 - y0) * (std::min(w_, (g + 1) * cell_) - g * cell_));
            to[g] *= norm;
            to[stride_ + g] *= norm;
        }
    }

    int w_, h_, cell_;
    // Coefficients are averaged over a quarter of the window radius only: windows centred far
    // off, which see a sliver of an edge and read it as noise, would pull colour across it.
    Box box_, spread_;
    int gw_, gh_, stride_;
    float lumaEps_;
    std::unique_ptr<v4[]> grid_;
    std::vector<Tap> columns_;
};

// What the final step of a row applies: the luminance pass's coefficient sums and window ratios,
// and the colour pass's coefficients, each null when that pass is off.
struct RowChanges {
    const v4* luma = nullptr;
    const float *ratioR = nullptr, *ratioB = nullptr;
    const v4* chroma = nullptr;
    const float* next = nullptr;  // the input row to fetch into cache meanwhile
};

// Writes one output row. Luminance first: Y moves to the filtered value, R − Y and B − Y with it
// in proportion to their window ratios. Then colour: d = (R − Y, B − Y) becomes the interpolated
// a·d + (1 − a)α·f + (1 − a)β, f the encoded luma after the luminance pass. G follows from luma.
void finishRow(const float* in, float* out, int w, const RowChanges& k) {
    for (int x = 0; x < w; x += 4) {
        if (k.next) __builtin_prefetch(k.next + 4 * x);
        v4 c[4];
        loadChannels(in, x, w, c);
        const v4i ok = usable(c[0], c[1], c[2]);
        const v4 lum = lumaOf(c[0], c[1], c[2]);
        // Changes of Y, R − Y and B − Y, and the encoded luma that guides the colour.
        v4 change = splat(0), dr = splat(0), db = splat(0), guide = splat(0);
        if (k.luma) {
            v4 q[4] = {k.luma[x], k.luma[x + 1], k.luma[x + 2], k.luma[x + 3]};
            transpose(q[0], q[1], q[2], q[3]);  // weighted sums of a, b, lost variance; weight
            const v4 norm = 1 / q[3];
            const v4 smooth = (q[0] * encode(lum) + q[1]) * norm;
            // The brightness term fades in from black, where the encoding turns linear and
            // smoothing does not darken.
            const v4 fade = vmin(vmax(smooth * (1 / fullCorrection), splat(0)), splat(1));
            change = decode(smooth) + q[2] * norm * fade - lum;
            dr = change * load(k.ratioR + x);
            db = change * load(k.ratioB + x);
            guide = smooth;
        } else if (k.chroma) {
            guide = encode(lum);
        }
        if (k.chroma) {
            v4 q[4] = {k.chroma[2 * x], k.chroma[2 * x + 2], k.chroma[2 * x + 4],
                       k.chroma[2 * x + 6]};
            transpose(q[0], q[1], q[2], q[3]);
            v4 p[4] = {k.chroma[2 * x + 1], k.chroma[2 * x + 3], k.chroma[2 * x + 5],
                       k.chroma[2 * x + 7]};
            transpose(p[0], p[1], p[2], p[3]);
            const v4 a = q[0] - 1;
            dr += a * (c[0] - lum + dr) + q[1] * guide + q[3];
            db += a * (c[2] - lum + db) + q[2] * guide + p[0];
        }
        dr += change;
        db += change;
        const v4 dg = (change - lumaR * dr - lumaB * db) * (1 / lumaG);
        c[0] = ok ? c[0] + dr : c[0];
        c[1] = ok ? c[1] + dg : c[1];
        c[2] = ok ? c[2] + db : c[2];
        storeChannels(out, x, w, c);
    }
}

// Luminance: a self-guided filter on encoded luma f. Per window of mean m and variance v,
// a = v / (v + ε) and b = m(1 − a); each pixel takes the average a and b of the windows over it,
// weighted by 1 − a so that windows across an edge have little say. Smoothing in the √ domain
// darkens on average by the variance removed, so (1 − a)²·v is averaged alongside and added back.
// R and B change by the luma change times (1 + their mean ratio to luma in the window): exact
// ratios for a uniform colour, and no tint from noise (a pixel's own noisy ratio is not used).
// The colour pass's coefficients, when given, are applied in the same step.
bool lumaPass(const Image& in, Image& out, float radius, float eps, const ChromaFilter* chroma,
              const Execution& exec) {
    const int w = in.width(), h = in.height(), w4 = (w + 3) & ~3;
    const Box box(radius);
    const int blocks = (h + lumaBlock - 1) / lumaBlock;
    return parallelFor(0, blocks, exec, [&](int b0, int b1) {
        Column stats(box, w), coefs(box, w);
        PaddedRow row(w, box.pad());
        std::vector<v4> line(chroma ? size_t(chroma->lineSize()) : 0);
        std::vector<v4> chromaRow(chroma ? 2 * size_t(w4) : 0);
        // The window ratios of the rows between the two stages: R, then B.
        const int held = 2 * box.r + 3;
        std::vector<float> ratios(size_t(held) * size_t(w4) * 2);
        auto ratioRow = [&](int t) {
            return ratios.data() + size_t(((t % held) + held) % held) * size_t(w4) * 2;
        };
        auto guideRow = [&](int t, v4* dst) {
            const float* src = in.row(std::clamp(t, 0, h - 1));
            const float* next = in.row(std::clamp(t + 1, 0, h - 1));
            v4* p = row.at();
            for (int x = 0; x < w; x += 4) {
                __builtin_prefetch(next + 4 * x);
                v4 c[4];
                loadChannels(src, x, w, c);
                const v4i ok = usable(c[0], c[1], c[2]);
                const v4 lum = lumaOf(c[0], c[1], c[2]), f = encode(lum);
                const v4 toRatio = 1 / (vmax(lum, splat(0)) + darkFloor), zero = splat(0);
                v4 lanes[4] = {ok ? f : zero, ok ? f * f : zero, ok ? (c[0] - lum) * toRatio : zero,
                               ok ? (c[2] - lum) * toRatio : zero};
                transpose(lanes[0], lanes[1], lanes[2], lanes[3]);
                std::copy(lanes, lanes + 4, p + x);
            }
            replicateEnds(p, w, box.pad());
            boxAlong(p, w, box, dst);
        };
        auto coefRow = [&](int u, v4* dst) {
            const v4* m = stats.mean();
            v4* p = row.at();
            float* ratioR = ratioRow(u);
            float* ratioB = ratioR + w4;
            for (int x = 0; x < w; x += 4) {
                v4 mean = m[x], square = m[x + 1], r = m[x + 2], b = m[x + 3];
                transpose(mean, square, r, b);
                store(ratioR + x, r);
                store(ratioB + x, b);
                const v4 var = vmax(square - mean * mean, splat(0));
                const v4 a = var / (var + eps);
                const v4 weight = vmax(1 - a, splat(minWeight));
                v4 lanes[4] = {weight * a, weight * mean * (1 - a),
                               weight * (1 - a) * (1 - a) * var, weight};
                transpose(lanes[0], lanes[1], lanes[2], lanes[3]);
                std::copy(lanes, lanes + 4, p + x);
            }
            replicateEnds(p, w, box.pad());
            boxAlong(p, w, box, dst);
            stats.advance(guideRow);
        };
        for (int b = b0; b < b1; ++b) {
            const int y0 = b * lumaBlock, y1 = std::min(h, y0 + lumaBlock);
            stats.start(y0 - box.r - 1, guideRow);
            const v4* sums = coefs.start(y0, coefRow);
            for (int y = y0; y < y1; ++y) {
                if (y > y0) sums = coefs.advance(coefRow);
                RowChanges k{sums, ratioRow(y), ratioRow(y) + w4};
                if (chroma) {
                    chroma->coefficients(y, line.data(), chromaRow.data());
                    k.chroma = chromaRow.data();
                }
                finishRow(in.row(y), out.row(y), w, k);
            }
        }
    });
}

float amount(float a) {
    return a > 0 ? std::min(a, 1.0f) : 0;  // NaN fails the test
}

}  // namespace

Image rawNoiseReduction(const Image& input, const RawNoiseReductionParams& p,
                        const Execution& exec) {
    const float lum = amount(p.luminance), col = amount(p.color);
    if (input.empty() || (lum == 0 && col == 0)) return input;
    const float scale = p.scale > 0 ? std::clamp(p.scale, 1 / 64.0f, 4.0f) : 1;
    // Downsizing averages noise away in proportion, so thresholds shrink with the scale too.
    const float noiseScale = std::min(scale, 1.0f);
    const int w = input.width(), h = input.height();
    // The colour statistics are taken from the input rather than the luminance pass's output (the
    // two differ by little within a window), so both passes finish each pixel in one step.
    std::optional<ChromaFilter> chroma;
    if (col > 0) {
        const float t = chromaThreshold * col * noiseScale;
        const float epsPerLevel = 2 * t * t / (midGrey + darkFloor);  // two channels
        chroma.emplace(w, h, scale * (chromaBaseRadius + chromaRadiusGain * col), noiseScale);
        if (!chroma->solve(input, epsPerLevel, exec)) return Image{};
    }
    Image out = Image::forOverwrite(w, h);
    if (lum > 0) {
        const float t = lumaThreshold * lum * noiseScale;
        if (!lumaPass(input, out, scale * (lumaBaseRadius + lumaRadiusGain * lum),
                      std::max(t * t, minEps), chroma ? &*chroma : nullptr, exec))
            return Image{};
        return out;
    }
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        std::vector<v4> line(size_t(chroma->lineSize())), chromaRow(2 * size_t((w + 3) & ~3));
        for (int y = y0; y < y1; ++y) {
            chroma->coefficients(y, line.data(), chromaRow.data());
            const RowChanges k{.chroma = chromaRow.data(),
                               .next = input.row(std::min(y + 1, h - 1))};
            finishRow(input.row(y), out.row(y), w, k);
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
