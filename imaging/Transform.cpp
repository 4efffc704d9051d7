#include "Transform.h"

#include <cmath>

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
    const double x0f = std::floor(fx), y0f = std::floor(fy);
    const float ax = float(fx - x0f), ay = float(fy - y0f);
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

/// Output pixel centres through a 3×3 inverse map back into the input.
Image warp(const Image& input, const std::array<double, 9>& inv, int outW, int outH, EdgeMode edges,
           const Execution& exec) {
    Image out = Image::forOverwrite(outW, outH);
    const bool done = parallelFor(0, outH, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* o = out.row(y);
            const double qy = y + 0.5;
            for (int x = 0; x < outW; ++x) {
                const double qx = x + 0.5;
                const double wz = inv[6] * qx + inv[7] * qy + inv[8];
                if (!(std::abs(wz) > 1e-12)) {  // the horizon of the projection
                    o[4 * x] = o[4 * x + 1] = o[4 * x + 2] = o[4 * x + 3] = 0;
                    continue;
                }
                const double px = (inv[0] * qx + inv[1] * qy + inv[2]) / wz;
                const double py = (inv[3] * qx + inv[4] * qy + inv[5]) / wz;
                sample(input, px, py, edges, o + 4 * x);
            }
        }
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
