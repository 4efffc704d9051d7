#include "GaussianBlur.h"
#include "BoxShrink.h"
#include "Simd.h"

#include <immintrin.h>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace ql::img {
namespace {

using namespace simd;

// The 1D filter for one σ: a sampled kernel for small σ, three extended boxes for large.
struct LineFilter {
    bool boxes = false;
    std::vector<float> taps;  // taps[k] weights the samples at ±k
    int r = 0;                // each box covers ±r fully...
    float alpha = 0;          // ...and the samples at ±(r + 1) with this weight
    float scale = 0;          // 1 / (2r + 1 + 2 alpha)
    int pad() const { return boxes ? 3 * (r + 1) : int(taps.size()) - 1; }
};

// Variance of the normalised samples of a Gaussian of deviation s at -R..R.
double sampledVariance(double s, int R) {
    double sum = 1, moment = 0;
    for (int k = 1; k <= R; ++k) {
        const double g = std::exp(-0.5 * k * k / (s * s));
        sum += 2 * g;
        moment += 2 * g * k * k;
    }
    return moment / sum;
}

LineFilter makeFilter(double sigma) {
    LineFilter f;
    if (sigma < 3) {
        // Sampling shrinks a small Gaussian's variance; widen it until the samples have σ².
        const int R = std::max(1, int(std::ceil(3 * sigma)));
        double lo = 1e-3, hi = 4 * sigma + 1;
        for (int i = 0; i < 60; ++i) {
            const double mid = 0.5 * (lo + hi);
            (sampledVariance(mid, R) < sigma * sigma ? lo : hi) = mid;
        }
        const double s = 0.5 * (lo + hi);
        std::vector<double> w(size_t(R) + 1);
        double sum = 0;
        for (int k = 0; k <= R; ++k) {
            w[size_t(k)] = std::exp(-0.5 * k * k / (s * s));
            sum += k == 0 ? w[0] : 2 * w[size_t(k)];
        }
        for (double v : w)
            f.taps.push_back(float(v / sum));
        return f;
    }
    // Three boxes of variance σ²/3 each. A box of ±r has variance r(r+1)/3; the fractional end
    // weight alpha makes up the rest exactly.
    const double s2 = sigma * sigma / 3;
    int r = int(std::floor((std::sqrt(1 + 12 * s2) - 1) / 2));
    while (double(r + 1) * (r + 2) / 3 <= s2)
        ++r;
    while (r > 0 && double(r) * (r + 1) / 3 > s2)
        --r;
    const double alpha = (2 * r + 1) * (s2 - r * (r + 1) / 3.0) / (2 * ((r + 1.0) * (r + 1) - s2));
    f.boxes = true;
    f.r = r;
    f.alpha = float(alpha);
    f.scale = float(1 / (2 * r + 1 + 2 * alpha));
    return f;
}

// One extended box over in[0, n): out[j] is centred on in[j + r + 1], for j < n - 2(r + 1).
// Window sums come from prefix and suffix sums inside blocks of the window's length, so no
// running sum carries a NaN or infinity beyond the windows that hold it.
[[gnu::always_inline]] inline void boxPass(const v8* in, int n, v8* out, v8* pre, v8* suf,
                                           const LineFilter& f) {
    const int L = 2 * f.r + 1;
    for (int b = 0; b < n; b += L) {
        const int e = std::min(b + L, n);
        v8 s = in[b];
        pre[b] = s;
        for (int i = b + 1; i < e; ++i)
            pre[i] = s += in[i];
        s = in[e - 1];
        suf[e - 1] = s;
        for (int i = e - 2; i >= b; --i)
            suf[i] = s += in[i];
    }
    const v8 alpha = v8{} + f.alpha, scale = v8{} + f.scale;
    const int last = n - 2 * (f.r + 1);  // window starts run from 1 to last
    int s = 1;
    while (s <= last) {
        // Windows starting inside a block end in the next one: suffix plus prefix.
        const int stop = std::min((s / L + 1) * L, last + 1);
        for (; s < stop; ++s)
            out[s - 1] = (suf[s] + pre[s + L - 1] + alpha * (in[s - 1] + in[s + L])) * scale;
        // A window starting on a block boundary is that block.
        if (s <= last) {
            out[s - 1] = (suf[s] + alpha * (in[s - 1] + in[s + L])) * scale;
            ++s;
        }
    }
}

// The same box for finite lines, as a running sum: a third of the memory traffic. The sum is
// formed afresh every so often, so its rounding never builds up along a long line.
[[gnu::always_inline]] inline void runningBoxPass(const v8* in, int n, v8* out,
                                                  const LineFilter& f) {
    constexpr int restart = 256;
    const int L = 2 * f.r + 1, count = n - 2 * (f.r + 1);
    const v8 alpha = v8{} + f.alpha, scale = v8{} + f.scale;
    for (int j0 = 0; j0 < count; j0 += restart) {
        v8 sum = in[j0 + 1];
        for (int i = j0 + 2; i <= j0 + L; ++i)
            sum += in[i];
        const int j1 = std::min(j0 + restart, count);
        for (int j = j0; j < j1; ++j) {
            out[j] = (sum + alpha * (in[j] + in[j + L + 1])) * scale;
            sum += in[j + L + 1] - in[j + 1];
        }
    }
}

// The blur of one padded line of eight lanes: `a` holds `length` values after f.pad() padding
// values on either side; out[0, length) receives the blur. `a` and `b` are overwritten.
QL_KERNEL_FOR_WIDE_REGISTERS void blurLine(v8* a, v8* b, v8* pre, v8* suf, int length,
                                           const LineFilter& f, v8* out) {
    const int pad = f.pad(), n = length + 2 * pad;
    if (!f.boxes) {
        const int R = pad;
        const float* w = f.taps.data();
        for (int j = 0; j < length; ++j) {
            const v8* c = a + j + R;
            v8 s = w[0] * c[0];
            for (int k = 1; k <= R; ++k)
                s += w[k] * (c[-k] + c[k]);
            out[j] = s;
        }
        return;
    }
    // Infinity times zero is NaN: one sum tells whether every value is finite.
    v8 probe{};
    for (int i = 0; i < n; ++i)
        probe += a[i] * 0.0f;
    bool finite = true;
    for (int k = 0; k < 8; ++k)
        finite = finite && probe[k] == 0;
    const int step = 2 * (f.r + 1);
    if (finite) {
        runningBoxPass(a, n, b, f);
        runningBoxPass(b, n - step, a, f);
        runningBoxPass(a, n - 2 * step, out, f);
    } else {
        boxPass(a, n, b, pre, suf, f);
        boxPass(b, n - step, a, pre, suf, f);
        boxPass(a, n - 2 * step, out, pre, suf, f);
    }
}

// A buffer of eight-lane values on a 32-byte boundary: the kernels built for wider registers
// load them whole, while this build's own alignment for them is only 16.
class LaneBuffer {
  public:
    LaneBuffer() = default;
    explicit LaneBuffer(size_t n) : storage_(n + 1) {}
    v8* data() {
        const auto at = reinterpret_cast<uintptr_t>(storage_.data());
        return reinterpret_cast<v8*>((at + 31) & ~uintptr_t(31));
    }
    v8& operator[](size_t i) { return data()[i]; }

  private:
    std::vector<v8> storage_;
};

// Blurs lines of eight lanes (two pixels' channels, or one channel of eight rows) with one
// filter; its buffers serve one thread.
class LineBlur {
  public:
    LineBlur(const LineFilter& f, EdgeMode edges, int maxLength) : f_(f), edges_(edges) {
        const size_t n = size_t(maxLength) + 2 * size_t(f.pad());
        a_ = LaneBuffer(n);
        if (f.boxes) b_ = LaneBuffer(n), pre_ = LaneBuffer(n), suf_ = LaneBuffer(n);
    }

    // Where the caller puts the line, `length` values, before run().
    v8* line() { return a_.data() + f_.pad(); }

    // out[0, length) = the blur of line()[0, length).
    void run(int length, v8* out) {
        const int pad = f_.pad();
        const bool clamp = edges_ == EdgeMode::clamp;
        std::fill_n(a_.data(), pad, clamp ? line()[0] : v8{});
        std::fill_n(line() + length, pad, clamp ? line()[length - 1] : v8{});
        blurLine(a_.data(), b_.data(), pre_.data(), suf_.data(), length, f_, out);
    }

  private:
    const LineFilter& f_;
    EdgeMode edges_;
    LaneBuffer a_, b_, pre_, suf_;
};

// One direction of the blur: the `rows` rows of `src` (each `length` pixels) are blurred along
// their length and stored transposed, so dst has `length` rows of `rows` pixels. Doing both
// directions this way keeps every access sequential. Returns false when cancelled.
struct Pass {
    const float* src;
    int length, rows;
    float* dst;
    const std::function<void(const float*, float*, int)>* prepare = nullptr;  // on src rows
    const std::function<void(const float*, const float*, float*, int)>* finish = nullptr;
    const float* original = nullptr;  // laid out like dst, handed to finish
};

constexpr int kPrefetchColumns = 16;

bool runPass(const Pass& p, const LineFilter& f, EdgeMode edges, const Execution& exec) {
    // A band of rows is blurred into cache, then written out as short runs of each column. The
    // runs go straight to memory: each fills whole cache lines, which need not be read first.
    constexpr int band = 8;
    const int bands = (p.rows + band - 1) / band;
    const bool streaming = reinterpret_cast<uintptr_t>(p.dst) % 16 == 0;
    return parallelFor(0, bands, exec, [&](int b0, int b1) {
        LineBlur line(f, edges, p.length);
        std::vector<LaneBuffer> pairs(band / 2, LaneBuffer(size_t(p.length)));
        std::vector<float> prepared(p.prepare ? size_t(p.length) * 8 : 0);
        alignas(16) float gathered[band * 4];
        alignas(16) float finished[band * 4];
        for (int b = b0; b < b1; ++b) {
            const int y0 = b * band, count = std::min(band, p.rows - y0);
            // Two rows side by side in each line, the last row twice when the count is odd.
            for (int j = 0; j < count; j += 2) {
                const float* rows[2];
                for (int k = 0; k < 2; ++k) {
                    rows[k] =
                        p.src + size_t(y0 + std::min(j + k, count - 1)) * size_t(p.length) * 4;
                    if (p.prepare) {
                        float* to = prepared.data() + size_t(k) * size_t(p.length) * 4;
                        (*p.prepare)(rows[k], to, p.length);
                        rows[k] = to;
                    }
                }
                float* in = reinterpret_cast<float*>(line.line());
                for (int x = 0; x < p.length; ++x) {
                    std::memcpy(in + 8 * x, rows[0] + 4 * x, sizeof(v4));
                    std::memcpy(in + 8 * x + 4, rows[1] + 4 * x, sizeof(v4));
                }
                line.run(p.length, pairs[size_t(j / 2)].data());
            }
            for (int x = 0; x < p.length; ++x) {
                const size_t at = (size_t(x) * size_t(p.rows) + size_t(y0)) * 4;
                // Each column is a short run on a row of its own, a pattern the processor does
                // not foresee: the runs a few columns on are asked for now.
                if (p.original && x + kPrefetchColumns < p.length) {
                    const size_t ahead = at + size_t(kPrefetchColumns) * size_t(p.rows) * 4;
                    __builtin_prefetch(p.original + ahead);
                    __builtin_prefetch(p.original + ahead + 16);
                }
                for (int j = 0; j < count; ++j) {
                    const float* pair = reinterpret_cast<const float*>(pairs[size_t(j / 2)].data());
                    std::memcpy(gathered + 4 * j, pair + 8 * x + 4 * (j % 2), sizeof(v4));
                }
                if (p.finish) (*p.finish)(p.original + at, gathered, finished, count);
                const float* from = p.finish ? finished : gathered;
                float* d = p.dst + at;
                if (streaming) {
                    for (int j = 0; j < 4 * count; j += 4)
                        _mm_stream_ps(d + j, _mm_load_ps(from + j));
                } else {
                    std::memcpy(d, from, size_t(count) * sizeof(v4));
                }
            }
        }
        _mm_sfence();  // the streamed runs are seen by whoever reads the picture next
    });
}

// The sampled kernel along one row of a plane: out[x] = Σ w[k]·(in[x − k] + in[x + k]), summed
// in the order LineBlur sums, so the results are the same floats. `padded` holds the row with
// R clamped values before and after.
QL_KERNEL_FOR_WIDE_REGISTERS void tapsAlong(const float* padded, int width, const float* w, int R,
                                            float* out) {
    for (int x = 0; x < width; ++x)
        out[x] = w[0] * padded[x + R];
    for (int k = 1; k <= R; ++k)
        for (int x = 0; x < width; ++x)
            out[x] += w[k] * (padded[x + R - k] + padded[x + R + k]);
}

// The same down the rows: out = Σ w[k]·(row[y − k] + row[y + k]) with clamped row indices.
QL_KERNEL_FOR_WIDE_REGISTERS void tapsDown(const float* plane, int width, int height, int y,
                                           const float* w, int R, float* out) {
    const auto row = [&](int i) {
        return plane + size_t(std::clamp(i, 0, height - 1)) * size_t(width);
    };
    const float* c = row(y);
    for (int x = 0; x < width; ++x)
        out[x] = w[0] * c[x];
    for (int k = 1; k <= R; ++k) {
        const float *above = row(y - k), *below = row(y + k);
        for (int x = 0; x < width; ++x)
            out[x] += w[k] * (above[x] + below[x]);
    }
}

Plane tapsOnPlane(const Plane& plane, const LineFilter& f, const Execution& exec) {
    const int R = int(f.taps.size()) - 1, width = plane.width(), height = plane.height();
    Plane across = Plane::forOverwrite(width, height), result = Plane::forOverwrite(width, height);
    const bool rows = parallelFor(0, height, exec, [&](int y0, int y1) {
        std::vector<float> padded(size_t(width) + 2 * size_t(R));
        for (int y = y0; y < y1; ++y) {
            const float* in = plane.row(y);
            std::fill_n(padded.begin(), R, in[0]);
            std::copy(in, in + width, padded.begin() + R);
            std::fill_n(padded.begin() + R + width, R, in[width - 1]);
            tapsAlong(padded.data(), width, f.taps.data(), R, across.row(y));
        }
    });
    if (!rows) return {};
    const bool columns = parallelFor(0, height, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            tapsDown(across.row(0), width, height, y, f.taps.data(), R, result.row(y));
    });
    return columns ? result : Plane{};
}

// Block means of one border line of the input (a row or a column, `n` pixels `step` floats
// apart), prepared like the rows the blocks come from: what clamping repeats beyond that border,
// at the shrunk copy's scale.
std::vector<v4> borderMeans(const float* first, int n, size_t step, int f,
                            const RowPrepare& prepare) {
    std::vector<float> line(size_t(n) * 4);
    for (int i = 0; i < n; ++i)
        std::memcpy(&line[size_t(i) * 4], first + size_t(i) * step, sizeof(v4));
    if (prepare) {
        std::vector<float> prepared(line.size());
        prepare(line.data(), prepared.data(), n);
        line.swap(prepared);
    }
    std::vector<v4> means;
    for (int i = 0; i < n; i += f) {
        const int e = std::min(i + f, n);
        v4 sum = splat(0);
        for (int k = i; k < e; ++k)
            sum += load(&line[size_t(k) * 4]);
        means.push_back(sum * splat(1.0f / float(e - i)));
    }
    return means;
}

// The blur of a shrunk copy, interpolated back row by row into `finish`. Box averaging and the
// linear interpolation add variance (f² − 1)/12 and f²/6; the small blur makes up the rest. The
// shrunk copy is framed by what clamping repeats beyond each border (the border's own pixels,
// not the mean of the block inside it), wide enough for the small blur, so the frame's edges
// and corners come out as the exact blur gives them.
Image coarseBlurWith(const Image& input, double sigma, int f, const detail::BlurHooks& hooks,
                     const Execution& exec) {
    const Image inner = boxShrink(input, f, f, exec, hooks.prepare);
    if (inner.empty()) return Image{};
    const double extra = (double(f) * f - 1) / 12 + double(f) * f / 6;
    const double smallSigma = std::sqrt(std::max(sigma * sigma - extra, 0.09 * f * f)) / f;
    const int w = input.width(), h = input.height();
    const int sw = inner.width(), sh = inner.height();
    const int pad = int(std::ceil(3 * smallSigma)) + 1;
    const std::vector<v4> left = borderMeans(input.row(0), h, size_t(w) * 4, f, hooks.prepare);
    const std::vector<v4> right =
        borderMeans(input.row(0) + 4 * size_t(w - 1), h, size_t(w) * 4, f, hooks.prepare);
    const std::vector<v4> top = borderMeans(input.row(0), w, 4, f, hooks.prepare);
    const std::vector<v4> bottom = borderMeans(input.row(h - 1), w, 4, f, hooks.prepare);
    const auto corner = [&](int x, int y) {
        return borderMeans(input.row(y) + 4 * size_t(x), 1, 4, 1, hooks.prepare)[0];
    };
    const v4 corners[2][2] = {{corner(0, 0), corner(w - 1, 0)},
                              {corner(0, h - 1), corner(w - 1, h - 1)}};
    const int pw = sw + 2 * pad, ph = sh + 2 * pad;
    Image framed = Image::forOverwrite(pw, ph);
    const bool copied = parallelFor(0, ph, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const int sy = y - pad, band = sy < 0 ? 0 : sy < sh ? 1 : 2;
            float* o = framed.row(y);
            for (int x = 0; x < pw; ++x) {
                const int sx = x - pad, side = sx < 0 ? 0 : sx < sw ? 1 : 2;
                if (band == 1 && side == 1) {  // the inside, a row at a time
                    std::memcpy(o + 4 * size_t(x), inner.row(sy), size_t(sw) * sizeof(v4));
                    x += sw - 1;
                    continue;
                }
                v4 v;
                if (band == 1)
                    v = (side == 0 ? left : right)[size_t(sy)];
                else if (side == 1)
                    v = (band == 0 ? top : bottom)[size_t(sx)];
                else
                    v = corners[band / 2][side / 2];
                store(o + 4 * size_t(x), v);
            }
        }
    });
    if (!copied) return Image{};
    const Image blurred =
        detail::gaussianBlurWith(std::move(framed), {float(smallSigma), EdgeMode::clamp}, {}, exec);
    if (blurred.empty()) return Image{};
    // Horizontal interpolation: each output column's two source columns and weight, once. Block
    // k's centre lies at (k + ½)·f.
    std::vector<int> x0(static_cast<size_t>(w));
    std::vector<float> wx(static_cast<size_t>(w));
    for (int x = 0; x < w; ++x) {
        const double fx = (x + 0.5) / f - 0.5 + pad;
        x0[size_t(x)] = int(std::floor(fx));
        wx[size_t(x)] = float(fx - x0[size_t(x)]);
    }
    Image out = Image::resultFor(input);  // row y reads only row y of the input
    const bool ok = parallelFor(0, h, exec, [&](int r0, int r1) {
        std::vector<float> row(size_t(w) * 4);
        std::vector<v4> mixed(static_cast<size_t>(pw));
        for (int y = r0; y < r1; ++y) {
            const double fy = (y + 0.5) / f - 0.5 + pad;
            const int ya = int(std::floor(fy));
            const v4 wy = splat(float(fy - ya));
            const float *a = blurred.row(ya), *b = blurred.row(ya + 1);
            for (int sx = 0; sx < pw; ++sx) {
                const v4 va = load(a + 4 * size_t(sx));
                mixed[size_t(sx)] = va + (load(b + 4 * size_t(sx)) - va) * wy;
            }
            for (int x = 0; x < w; ++x) {
                const int i = x0[size_t(x)];
                const v4 v = mixed[size_t(i)] +
                             (mixed[size_t(i) + 1] - mixed[size_t(i)]) * splat(wx[size_t(x)]);
                store(row.data() + 4 * size_t(x), v);
            }
            if (hooks.finish)
                hooks.finish(input.row(y), row.data(), out.row(y), w);
            else
                std::memcpy(out.row(y), row.data(), row.size() * sizeof(float));
        }
    });
    return ok ? out : Image{};
}

}  // namespace

Image gaussianBlur(const Image& input, const GaussianBlurParams& p, const Execution& exec) {
    if (input.empty() || !(p.radius >= 0.3f)) return input;
    return detail::gaussianBlurWith(input, p, {}, exec);
}

namespace detail {

Image gaussianBlurWith(Image input, const GaussianBlurParams& p, const BlurHooks& hooks,
                       const Execution& exec) {
    if (input.empty()) return input;
    const double sigma = std::clamp(double(p.radius), 0.3, double(input.longEdge()));
    const int factor = hooks.coarse > 0 ? int(sigma / double(hooks.coarse)) : 0;
    if (factor >= 2 && p.edges == EdgeMode::clamp) {
        if (input.width() >= 2 * factor && input.height() >= 2 * factor)
            return coarseBlurWith(input, sigma, factor, hooks, exec);
    }
    const LineFilter f = makeFilter(std::isfinite(sigma) ? sigma : 0.3);
    const int w = input.width(), h = input.height();
    // The transposed intermediate is a picture of its own, so it comes from the engine's reused
    // memory; it is written in full before it is read.
    Image across = Image::forOverwrite(h, w);
    Pass horizontal{input.data(), w, h, across.data()};
    if (hooks.prepare) horizontal.prepare = &hooks.prepare;
    if (!runPass(horizontal, f, p.edges, exec)) return Image{};
    // The input is read again only where its own result is written, just before.
    Image out = Image::resultFor(input);
    Pass vertical{across.data(), h, w, out.data()};
    if (hooks.finish) vertical.finish = &hooks.finish, vertical.original = input.data();
    if (!runPass(vertical, f, p.edges, exec)) return Image{};
    return out;
}

Plane blurPlane(const Plane& plane, float sigma, const Execution& exec) {
    if (plane.empty()) return {};
    const int width = plane.width(), height = plane.height();
    const double s = std::clamp(double(sigma), 0.3, double(std::max(width, height)));
    const LineFilter f = makeFilter(std::isfinite(s) ? s : 0.3);
    if (!f.boxes) return tapsOnPlane(plane, f, exec);
    // Along the rows: eight rows side by side in each vector's lanes.
    Plane across = Plane::forOverwrite(width, height);
    const bool rows = parallelFor(0, (height + 7) / 8, exec, [&](int g0, int g1) {
        LineBlur line(f, EdgeMode::clamp, width);
        LaneBuffer out(static_cast<size_t>(width));
        for (int g = g0; g < g1; ++g) {
            const float* r[8];
            for (int k = 0; k < 8; ++k)  // past the last row, the last row again
                r[k] = plane.row(std::min(8 * g + k, height - 1));
            v8* in = line.line();
            for (int x = 0; x < width; ++x)
                in[x] = v8{r[0][x], r[1][x], r[2][x], r[3][x], r[4][x], r[5][x], r[6][x], r[7][x]};
            line.run(width, out.data());
            for (int k = 0; k < 8 && 8 * g + k < height; ++k) {
                float* o = across.row(8 * g + k);
                for (int x = 0; x < width; ++x)
                    o[x] = out[size_t(x)][k];
            }
        }
    });
    if (!rows) return {};
    // Down the columns: eight neighbouring columns are already side by side in memory.
    Plane result = Plane::forOverwrite(width, height);
    const bool columns = parallelFor(0, (width + 7) / 8, exec, [&](int g0, int g1) {
        LineBlur line(f, EdgeMode::clamp, height);
        LaneBuffer out(static_cast<size_t>(height));
        for (int g = g0; g < g1; ++g) {
            const int x0 = 8 * g;
            v8* in = line.line();
            if (x0 + 8 <= width) {
                for (int y = 0; y < height; ++y)
                    in[y] = load8(across.row(y) + x0);
            } else {  // past the last column, the last column again
                for (int y = 0; y < height; ++y)
                    for (int k = 0; k < 8; ++k)
                        in[y][k] = across.row(y)[std::min(x0 + k, width - 1)];
            }
            line.run(height, out.data());
            for (int y = 0; y < height; ++y)
                for (int k = 0; k < 8 && x0 + k < width; ++k)
                    result.row(y)[x0 + k] = out[size_t(y)][k];
        }
    });
    return columns ? result : Plane{};
}

}  // namespace detail

}  // namespace ql::img
