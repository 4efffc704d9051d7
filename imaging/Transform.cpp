#include "Transform.h"

#include <immintrin.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "Simd.h"

namespace ql::img {
namespace {

/// Bilinear sample at (x, y) in pixel coordinates whose centres lie at +0.5.
inline void sample(const Image& in, double x, double y, EdgeMode edges, float* out) {
    const double fx = x - 0.5, fy = y - 0.5;
    const int w = in.width(), h = in.height();
    if (edges == EdgeMode::transparent && (fx <= -1 || fy <= -1 || fx >= w || fy >= h)) {
        out[0] = out[1] = out[2] = out[3] = 0;
        return;
    }
    // Beyond the border every tap clamps to it anyway; held there, far positions fit an int.
    const double gx = std::clamp(fx, -1.0, double(w)), gy = std::clamp(fy, -1.0, double(h));
    const double x0f = std::floor(gx), y0f = std::floor(gy);
    const float ax = float(gx - x0f), ay = float(gy - y0f);
    const int x0 = int(x0f), y0 = int(y0f);
    float acc[4] = {0, 0, 0, 0};
    const float wts[4] = {(1 - ax) * (1 - ay), ax * (1 - ay), (1 - ax) * ay, ax * ay};
    for (int k = 0; k < 4; ++k) {
        int sx = x0 + (k & 1), sy = y0 + (k >> 1);
        if (sx < 0 || sy < 0 || sx >= w || sy >= h) {
            if (edges == EdgeMode::transparent) continue;  // outside is clear
            sx = sx < 0 ? 0 : (sx >= w ? w - 1 : sx);
            sy = sy < 0 ? 0 : (sy >= h ? h - 1 : sy);
        }
        const float* p = in.row(sy) + size_t(sx) * 4;
        for (int c = 0; c < 4; ++c)
            acc[c] += wts[k] * p[c];
    }
    for (int c = 0; c < 4; ++c)
        out[c] = acc[c];
}

// A turned row reads the input along a slant: short runs on many rows, which the hardware does
// not foresee, so the pixels a little further along are asked for early (every other pixel: a
// cache line holds four).
constexpr int kAhead = 32;
// Output is made in blocks of kBand rows by kChunk columns.
constexpr int kBand = 32;
constexpr int kChunk = 256;

// Scratch of one thread for the runs of a row: per output pixel, the offset of its top-left tap
// (kGeneral where it needs the general path, kClear where it lies wholly outside a transparent
// edge) and the weights along x and y.
constexpr int kGeneral = -1, kClear = -2;
struct RunScratch {
    std::vector<int> at = std::vector<int>(kChunk + kAhead, kGeneral);
    std::vector<float> ax = std::vector<float>(kChunk), ay = std::vector<float>(kChunk);
};

/// Output pixels [x0, x1) of row y. Source positions come first, eight at a time in single
/// precision (a run's offsets are small, so its positions stay within a thousandth of a pixel);
/// then the taps, so that sampling can ask for the input ahead. A pixel is a blend of two rows of
/// two pixels; at a clamped edge the cell is held inside, which gives the edge pixels themselves.
/// Positions beyond the horizon, and the rim of a transparent edge, take the general path.
QL_KERNEL_FOR_WIDE_REGISTERS void warpRun(const Image& input, const std::array<double, 9>& inv,
                                          EdgeMode edges, int y, int x0, int x1, RunScratch& s,
                                          float* o, bool streaming) {
    using namespace simd;
    // Rows of output go straight to memory when aligned: whole cache lines need no read first.
    const auto put = [streaming](float* px, v4 v) {
        if (streaming)
            _mm_stream_ps(px, v);
        else
            store(px, v);
    };
    const int w = input.width(), h = input.height();
    const size_t stride = size_t(w) * 4;
    const int n = x1 - x0;
    const double qy = y + 0.5, q0 = x0 + 0.5;
    const double cx = inv[1] * qy + inv[2], cy = inv[4] * qy + inv[5];
    const double cz = inv[7] * qy + inv[8];
    const v8 step = {0, 1, 2, 3, 4, 5, 6, 7};
    // Broadcasts are written as exact subtractions, inline: GCC turns them into one instruction,
    // where a helper function, built for the default target, would make a chain of inserts.
    const v8 nx0 = float(inv[0] * q0 + cx) - v8{}, ny0 = float(inv[3] * q0 + cy) - v8{};
    const v8 nz0 = float(inv[6] * q0 + cz) - v8{};
    const v8 dx = float(inv[0]) - v8{}, dy = float(inv[3]) - v8{}, dz = float(inv[6]) - v8{};
    const v8 zero = {}, lastX = float(w - 1) - v8{}, lastY = float(h - 1) - v8{};
    const v8 far = 1e30f - v8{};
    const v8i cellX = v8i{} + (w - 2), cellY = v8i{} + (h - 2);
    const bool clamp = edges == EdgeMode::clamp;
    int* const at = s.at.data();
    float* const axs = s.ax.data();
    float* const ays = s.ay.data();
    // A cell needs two columns and two rows; offsets are ints.
    const bool cells = w >= 2 && h >= 2 && input.pixelCount() < (size_t(1) << 31);
    for (int i = 0; i < n && !cells; ++i)
        at[i] = kGeneral;
    for (int i = 0; i < n && cells; i += 8) {
        const v8 k = step + float(i);
        const v8 z = nz0 + dz * k;
        v8 fx = (nx0 + dx * k) / z - 0.5f, fy = (ny0 + dy * k) / z - 0.5f;
        // NaN and infinite positions (at the horizon) fail every test and go the general way.
        v8i use, clear = v8i{};
        if (clamp) {
            use = (fx > -far) & (fx < far) & (fy > -far) & (fy < far);
            fx = fx < zero ? zero : (fx > lastX ? lastX : fx);
            fy = fy < zero ? zero : (fy > lastY ? lastY : fy);
        } else {
            use = (fx >= zero) & (fy >= zero) & (fx < lastX) & (fy < lastY);
            clear = (fx <= -1.0f) | (fy <= -1.0f) | (fx >= float(w)) | (fy >= float(h));
        }
        fx = use ? fx : zero;
        fy = use ? fy : zero;
        v8i sx = __builtin_convertvector(fx, v8i), sy = __builtin_convertvector(fy, v8i);
        sx = sx > cellX ? cellX : sx;
        sy = sy > cellY ? cellY : sy;
        const v8 ax = fx - __builtin_convertvector(sx, v8);
        const v8 ay = fy - __builtin_convertvector(sy, v8);
        const v8i where = use ? sy * w + sx : (clear ? v8i{} + kClear : v8i{} + kGeneral);
        std::memcpy(at + i, &where, sizeof where);
        std::memcpy(axs + i, &ax, sizeof ax);
        std::memcpy(ays + i, &ay, sizeof ay);
    }
    for (int i = n; i < n + kAhead; ++i)
        at[i] = kGeneral;
    const float* const pixels = input.data();
    for (int i = 0; i < n; ++i) {
        if ((i & 1) == 0 && at[i + kAhead] >= 0) {
            const float* a = pixels + size_t(at[i + kAhead]) * 4;
            __builtin_prefetch(a);
            __builtin_prefetch(a + stride);
        }
        float* out = o + 4 * size_t(x0 + i);
        if (at[i] >= 0) {
            // Two pixels side by side are one load; blend down the rows, then across.
            const float* p = pixels + size_t(at[i]) * 4;
            const v8 top = load8(p), bottom = load8(p + stride);
            const v8 v = top + (ays[i] - v8{}) * (bottom - top);
            const v4 left = __builtin_shufflevector(v, v, 0, 1, 2, 3);
            const v4 right = __builtin_shufflevector(v, v, 4, 5, 6, 7);
            put(out, left + (axs[i] - v4{}) * (right - left));
            continue;
        }
        const double qx = x0 + i + 0.5, wz = inv[6] * qx + cz;
        if (at[i] == kClear || !(std::abs(wz) > 1e-12)) {  // or beyond the horizon
            put(out, splat(0));
            continue;
        }
        alignas(16) float v[4];
        sample(input, (inv[0] * qx + cx) / wz, (inv[3] * qx + cy) / wz, edges, v);
        put(out, load(v));
    }
}

/// Output pixel centres through a 3×3 inverse map back into the input.
Image warp(const Image& input, const std::array<double, 9>& inv, int outW, int outH, EdgeMode edges,
           const Execution& exec) {
    Image out = Image::forOverwrite(outW, outH);
    const bool streaming = reinterpret_cast<uintptr_t>(out.data()) % 16 == 0;
    const bool done = parallelFor(0, outH, exec, [&](int row0, int row1) {
        RunScratch scratch;
        // Blocks of rows by chunks of columns: a turned block reads a small patch of the input,
        // which stays in the core's cache while all its rows are made.
        for (int yb = row0; yb < row1; yb += kBand)
            for (int xb = 0; xb < outW; xb += kChunk) {
                const int xe = std::min(outW, xb + kChunk);
                for (int y = yb; y < std::min(row1, yb + kBand); ++y)
                    warpRun(input, inv, edges, y, xb, xe, scratch, out.row(y), streaming);
            }
        _mm_sfence();  // the streamed rows are seen by whoever reads the picture next
    });
    return done ? out : Image{};
}

bool invert3(const std::array<double, 9>& m, std::array<double, 9>& r) {
    const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                       m[2] * (m[3] * m[7] - m[4] * m[6]);
    if (!std::isfinite(det) || std::abs(det) < 1e-12) return false;
    r = {(m[4] * m[8] - m[5] * m[7]) / det, (m[2] * m[7] - m[1] * m[8]) / det,
         (m[1] * m[5] - m[2] * m[4]) / det, (m[5] * m[6] - m[3] * m[8]) / det,
         (m[0] * m[8] - m[2] * m[6]) / det, (m[2] * m[3] - m[0] * m[5]) / det,
         (m[3] * m[7] - m[4] * m[6]) / det, (m[1] * m[6] - m[0] * m[7]) / det,
         (m[0] * m[4] - m[1] * m[3]) / det};
    return true;
}

int sizeOr(int requested, int fallback) {
    return requested > 0 ? requested : fallback;
}

}  // namespace

Image affineTransform(const Image& input, const AffineParams& p, const Execution& exec) {
    if (input.empty()) return input;
    const int outW = sizeOr(p.outWidth, input.width());
    const int outH = sizeOr(p.outHeight, input.height());
    if (double(outW) * outH > double(1 << 30)) return input;
    const bool identity = p.a == 1 && p.b == 0 && p.c == 0 && p.d == 1 && p.tx == 0 && p.ty == 0;
    if (identity && outW == input.width() && outH == input.height()) return input;
    const std::array<double, 9> m = {p.a, p.c, p.tx, p.b, p.d, p.ty, 0, 0, 1};
    std::array<double, 9> inv;
    if (!invert3(m, inv)) return input;
    return warp(input, inv, outW, outH, p.edges, exec);
}

bool homography(double w, double h, const std::array<Point, 4>& to, std::array<double, 9>& out) {
    // Solve the 8 unknowns of H from the four correspondences by Gaussian elimination with
    // partial pivoting.
    const Point from[4] = {{0, 0}, {w, 0}, {w, h}, {0, h}};
    double a[8][9] = {};
    for (int i = 0; i < 4; ++i) {
        const double x = from[i].x, y = from[i].y, u = to[size_t(i)].x, v = to[size_t(i)].y;
        const double r1[9] = {x, y, 1, 0, 0, 0, -u * x, -u * y, u};
        const double r2[9] = {0, 0, 0, x, y, 1, -v * x, -v * y, v};
        std::copy(r1, r1 + 9, a[2 * i]);
        std::copy(r2, r2 + 9, a[2 * i + 1]);
    }
    for (int col = 0; col < 8; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 8; ++r)
            if (std::abs(a[r][col]) > std::abs(a[pivot][col])) pivot = r;
        if (!(std::abs(a[pivot][col]) > 1e-12)) return false;
        std::swap(a[pivot], a[col]);
        for (int r = 0; r < 8; ++r) {
            if (r == col) continue;
            const double f = a[r][col] / a[col][col];
            for (int c = col; c < 9; ++c)
                a[r][c] -= f * a[col][c];
        }
    }
    for (int i = 0; i < 8; ++i)
        out[size_t(i)] = a[i][8] / a[i][i];
    out[8] = 1;
    for (double v : out)
        if (!std::isfinite(v)) return false;
    return true;
}

Image perspectiveTransform(const Image& input, const PerspectiveParams& p, const Execution& exec) {
    if (input.empty()) return input;
    const int outW = sizeOr(p.outWidth, input.width());
    const int outH = sizeOr(p.outHeight, input.height());
    if (double(outW) * outH > double(1 << 30)) return input;
    const double w = input.width(), h = input.height();
    const std::array<Point, 4> quad = {p.topLeft, p.topRight, p.bottomRight, p.bottomLeft};

    // A proper quad turns the same way at every corner; crossed or degenerate corners don't.
    double turn[4];
    for (int i = 0; i < 4; ++i) {
        const Point a = quad[size_t(i)], b = quad[size_t((i + 1) % 4)],
                    c = quad[size_t((i + 2) % 4)];
        turn[i] = (b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x);
    }
    for (int i = 0; i < 4; ++i)
        if (!(turn[i] > 1e-9)) return input;

    std::array<double, 9> hm, inv;
    if (!homography(w, h, quad, hm) || !invert3(hm, inv)) return input;
    const bool identity = std::abs(hm[0] - 1) < 1e-12 && std::abs(hm[1]) < 1e-12 &&
                          std::abs(hm[2]) < 1e-12 && std::abs(hm[3]) < 1e-12 &&
                          std::abs(hm[4] - 1) < 1e-12 && std::abs(hm[5]) < 1e-12 &&
                          std::abs(hm[6]) < 1e-15 && std::abs(hm[7]) < 1e-15;
    if (identity && outW == input.width() && outH == input.height()) return input;
    return warp(input, inv, outW, outH, p.edges, exec);
}

}  // namespace ql::img
