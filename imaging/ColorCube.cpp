#include "ColorCube.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include "PixelMap.h"
#include "Simd.h"
#include "SrgbTransfer.h"

namespace ql::img {

namespace {

// Node strides in floats, and the scale from [0, 1] to node coordinates.
struct Cube {
    const float* nodes;
    int last;  // dimension − 1
    size_t greenStride, blueStride;
};

float clamp01(float v) {
    return v > 0 ? (v < 1 ? v : 1) : 0;
}  // NaN gives 0

// The trilinear blend of the cell whose lowest node is `p000`, at fractions (fr, fg, fb) along
// its axes; the fourth lane is the nodes' own. Nodes are RGBA, so one vector lerp interpolates
// the three channels of a node pair at once.
[[gnu::always_inline]] inline simd::v4 interpolate(const float* p000, const Cube& cube, float fr,
                                                   float fg, float fb) {
    using simd::v4;
    const float* p010 = p000 + cube.greenStride;
    const float* p001 = p000 + cube.blueStride;
    const float* p011 = p001 + cube.greenStride;
    const v4 wr = simd::splat(fr), wg = simd::splat(fg), wb = simd::splat(fb);
    const auto lerp = [](v4 a, v4 b, v4 w) { return a + w * (b - a); };
    const v4 c00 = lerp(simd::load(p000), simd::load(p000 + 4), wr);
    const v4 c10 = lerp(simd::load(p010), simd::load(p010 + 4), wr);
    const v4 c01 = lerp(simd::load(p001), simd::load(p001 + 4), wr);
    const v4 c11 = lerp(simd::load(p011), simd::load(p011 + 4), wr);
    return lerp(lerp(c00, c10, wg), lerp(c01, c11, wg), wb);
}

// `t` holds node coordinates in [0, dimension − 1]; gives the interpolated node value.
[[gnu::always_inline]] inline simd::v4 trilinear(const Cube& cube, const float* t) {
    int i[3];
    float f[3];
    for (int k = 0; k < 3; ++k) {
        i[k] = std::min(int(t[k]), cube.last - 1);
        f[k] = t[k] - float(i[k]);
    }
    const float* p000 = cube.nodes + size_t(i[0]) * 4 + size_t(i[1]) * cube.greenStride +
                        size_t(i[2]) * cube.blueStride;
    return interpolate(p000, cube, f[0], f[1], f[2]);
}

// The decoded colour of encoded node values: three channels at once while they lie in [0, 1],
// as a cube's nodes nearly always do.
[[gnu::always_inline]] inline void decodeInto(simd::v4 encoded, float* out) {
    const simd::v4 linear = srgbDecodeUnit(encoded);
    const auto outside = (encoded < 0.0f) | (encoded > 1.0f);
    out[0] = linear[0], out[1] = linear[1], out[2] = linear[2];
    if (outside[0] | outside[1] | outside[2]) [[unlikely]]
        for (int k = 0; k < 3; ++k)
            if (outside[k]) out[k] = srgbDecode(encoded[k]);
}
}  // namespace

// Beyond the cube's domain the mapping continues along each channel's own axis with the slope of
// the cube's outermost cell, so that values outside [0, 1] (a sharpening halo, a highlight above
// white) keep their distance from the edge instead of being flattened onto it; a curve that
// flattens at the edge flattens them too. `in` is the linear input, `t` its clamped node
// coordinates and `out` the linear result of the lookup; `position(n)` is the linear input at node
// n.
inline bool inside(const float* c) {
    return c[0] >= 0 && c[0] <= 1 && c[1] >= 0 && c[1] <= 1 && c[2] >= 0 && c[2] <= 1;
}

// The linear input across the outermost cell at each end of an axis (negative at the low end,
// where the inner node lies above the edge).
struct EdgeRuns {
    float above, below;
};

// `out` holds the decoded lookup at `t`: for a channel out of range, `t` already sits on the
// cube's edge along it, so only the inner side of the cell needs a lookup of its own.
template <class Decode>
[[gnu::noinline, gnu::cold]] void extend(const Cube& cube, const float* in, const float* t,
                                         float* out, const Decode& decode, EdgeRuns runs) {
    const float edge[3] = {out[0], out[1], out[2]};
    for (int k = 0; k < 3; ++k) {
        const bool above = in[k] > 1, below = in[k] < 0;
        if (!above && !below) continue;
        float b[3] = {t[0], t[1], t[2]};
        b[k] = float(above ? cube.last - 1 : 1);
        float inner[3];
        decode(trilinear(cube, b), inner);
        const float slope =
            std::max((edge[k] - inner[k]) / (above ? runs.above : runs.below), 0.0f);
        out[k] += slope * (in[k] - (above ? 1.0f : 0.0f));
    }
}

namespace {

// Every lane of a comparison's result true; any lane true.
[[gnu::always_inline]] inline bool allSet(simd::v8i mask) {
    uint64_t w[4];
    std::memcpy(w, &mask, sizeof w);
    return (w[0] & w[1] & w[2] & w[3]) == ~uint64_t(0);
}
[[gnu::always_inline]] inline bool anySet(simd::v8i mask) {
    uint64_t w[4];
    std::memcpy(w, &mask, sizeof w);
    return (w[0] | w[1] | w[2] | w[3]) != 0;
}

// A cube applied in sRGB-encoded space: what one row of it needs.
struct SrgbCube {
    Cube cube;
    const SrgbEncodeTable& encode;
    float scale;  // dimension − 1
    EdgeRuns runs;
    // Node offsets fit an int lane, as the eight-pixel path keeps them (a cube up to 812 nodes a
    // side).
    bool batched;
};

// One pixel the general way: any alpha, any value.
[[gnu::noinline]] void srgbCubePixel(const SrgbCube& job, const float* in, float* out) {
    const float a = in[3];
    const float u = unpremultiplyScale(a), m = premultiplyScale(a);
    const float c[3] = {in[0] * u, in[1] * u, in[2] * u};
    const float t[3] = {job.encode.clamped(c[0]) * job.scale, job.encode.clamped(c[1]) * job.scale,
                        job.encode.clamped(c[2]) * job.scale};
    float o[3];
    decodeInto(trilinear(job.cube, t), o);
    if (!inside(c)) extend(job.cube, c, t, o, decodeInto, job.runs);
    out[0] = o[0] * m, out[1] = o[1] * m, out[2] = o[2] * m, out[3] = a;
}

// Trilinear interpolation of pixels 2p and 2p + 1 of eight: each one's cell starts at its
// `offset` and is crossed at its fractions `frac`; gives both results, four lanes each.
template <int p>
[[gnu::always_inline]] inline simd::v8 interpolatePair(const Cube& cube, const simd::v8i& offset,
                                                       const simd::v8* frac) {
    using simd::v8;
    const float* a = cube.nodes + offset[2 * p];
    const float* b = cube.nodes + offset[2 * p + 1];
    const size_t g = cube.greenStride, bl = cube.blueStride;
    const auto corner = [a, b](size_t at) {
        return __builtin_shufflevector(simd::load(a + at), simd::load(b + at), 0, 1, 2, 3, 4, 5, 6,
                                       7);
    };
    const auto weight = [](v8 f) {
        return __builtin_shufflevector(f, f, 2 * p, 2 * p, 2 * p, 2 * p, 2 * p + 1, 2 * p + 1,
                                       2 * p + 1, 2 * p + 1);
    };
    const v8 wr = weight(frac[0]), wg = weight(frac[1]), wb = weight(frac[2]);
    const auto lerp = [](v8 x, v8 y, v8 w) { return x + w * (y - x); };
    const v8 c00 = lerp(corner(0), corner(4), wr);
    const v8 c10 = lerp(corner(g), corner(g + 4), wr);
    const v8 c01 = lerp(corner(bl), corner(bl + 4), wr);
    const v8 c11 = lerp(corner(g + bl), corner(g + bl + 4), wr);
    return lerp(lerp(c00, c10, wg), lerp(c01, c11, wg), wb);
}

// The four pixel pairs of eight interpolated; false where a result lies outside [0, 1], which
// the general way decodes.
[[gnu::always_inline]] inline bool lookUpEight(const Cube& cube, const simd::v8i& offset,
                                               const simd::v8* frac, simd::v8* r) {
    using simd::v8, simd::v8i;
    r[0] = interpolatePair<0>(cube, offset, frac);
    r[1] = interpolatePair<1>(cube, offset, frac);
    r[2] = interpolatePair<2>(cube, offset, frac);
    r[3] = interpolatePair<3>(cube, offset, frac);
    // The nodes' own alpha lanes do not count.
    const v8i alphaLanes{0, 0, 0, -1, 0, 0, 0, -1};
    const v8i decodable = ((r[0] >= 0.0f) & (r[0] <= 1.0f) & (r[1] >= 0.0f) & (r[1] <= 1.0f) &
                           (r[2] >= 0.0f) & (r[2] <= 1.0f) & (r[3] >= 0.0f) & (r[3] <= 1.0f)) |
                          alphaLanes;
    return allSet(decodable);
}

// The usual case eight pixels at a time: opaque, colour finite, nodes within [0, 1].
// Encoding and cell finding work on one channel of all eight pixels; the interpolation and the
// decode on two whole pixels a vector. One pixel's chain of steps is long and serial, and this
// lets the steps of neighbouring pixels overlap. Gives false, having written nothing, where a
// pixel needs the general way.
[[gnu::always_inline]] inline bool srgbCubeEight(const SrgbCube& job, const float* in, float* out) {
    using simd::v8, simd::v8i;
    const v8 q[4] = {simd::load8(in), simd::load8(in + 8), simd::load8(in + 16),
                     simd::load8(in + 24)};
    // Pixels to channels: rg = r0..r3 g0..g3, ba = b0..b3 a0..a3, and the same for pixels 4..7.
    const v8 rg0 = __builtin_shufflevector(q[0], q[1], 0, 4, 8, 12, 1, 5, 9, 13);
    const v8 ba0 = __builtin_shufflevector(q[0], q[1], 2, 6, 10, 14, 3, 7, 11, 15);
    const v8 rg1 = __builtin_shufflevector(q[2], q[3], 0, 4, 8, 12, 1, 5, 9, 13);
    const v8 ba1 = __builtin_shufflevector(q[2], q[3], 2, 6, 10, 14, 3, 7, 11, 15);
    const v8 colour[3] = {__builtin_shufflevector(rg0, rg1, 0, 1, 2, 3, 8, 9, 10, 11),
                          __builtin_shufflevector(rg0, rg1, 4, 5, 6, 7, 12, 13, 14, 15),
                          __builtin_shufflevector(ba0, ba1, 0, 1, 2, 3, 8, 9, 10, 11)};
    const v8 alpha = __builtin_shufflevector(ba0, ba1, 4, 5, 6, 7, 12, 13, 14, 15);
    // Finite colour beyond [0, 1] is usual too (a lifted highlight, a sharpening halo): the
    // mapping continues there as extend() continues it.
    v8i usual = alpha >= 1.0f, beyond = v8i{} + 0;
    v8i above[3], below[3];
    for (int c = 0; c < 3; ++c) {
        usual &= (colour[c] >= -std::numeric_limits<float>::max()) &
                 (colour[c] <= std::numeric_limits<float>::max());
        above[c] = colour[c] > 1.0f;
        below[c] = colour[c] < 0.0f;
        beyond |= above[c] | below[c];
    }
    v8i offset = v8i{} + 0;
    v8 frac[3];
    const int last = job.cube.last - 1;
    const v8i strides[3] = {v8i{} + 4, v8i{} + int(job.cube.greenStride),
                            v8i{} + int(job.cube.blueStride)};
    for (int c = 0; c < 3; ++c) {
        const v8 t = job.encode.clamped(colour[c]) * job.scale;
        v8i i = __builtin_convertvector(t, v8i);
        i = i < last ? i : last;
        frac[c] = t - __builtin_convertvector(i, v8);
        offset += i * strides[c];
    }
    v8 r[4];
    if (!allSet(usual) || !lookUpEight(job.cube, offset, frac, r)) [[unlikely]]
        return false;
    alignas(32) float decoded[32];
    for (int p = 0; p < 4; ++p)
        simd::store(decoded + 8 * p,
                    __builtin_shufflevector(srgbDecodeUnit(r[p]), q[p], 0, 1, 2, 11, 4, 5, 6, 15));
    if (anySet(beyond)) [[unlikely]] {
        // Along each axis a pixel leaves the cube by, the node face one step inside: its own
        // cell with the fraction along that axis at the inner face. At the low end that is the
        // next cell up, as extend() looks it up.
        if (job.cube.last < 2) return false;
        float inner[3][32];
        for (int c = 0; c < 3; ++c) {
            const v8i leaving = above[c] | below[c];
            if (!anySet(leaving)) continue;
            v8 innerFrac[3] = {frac[0], frac[1], frac[2]};
            innerFrac[c] = leaving ? v8{} : frac[c];
            v8 ri[4];
            if (!lookUpEight(job.cube, offset + (below[c] & strides[c]), innerFrac, ri))
                return false;
            for (int p = 0; p < 4; ++p)
                simd::store(inner[c] + 8 * p, srgbDecodeUnit(ri[p]));
        }
        for (int c = 0; c < 3; ++c)
            for (int j = 0; j < 8; ++j) {
                if (!above[c][j] && !below[c][j]) continue;
                float* o = decoded + 4 * j + c;
                const float run = above[c][j] ? job.runs.above : job.runs.below;
                const float slope = std::max((*o - inner[c][4 * j + c]) / run, 0.0f);
                *o += slope * (colour[c][j] - (above[c][j] ? 1.0f : 0.0f));
            }
    }
    std::memcpy(out, decoded, sizeof decoded);
    return true;
}

// One row: eight pixels at a time where they are usual, the general way elsewhere. Built for
// wider vector registers too where the processor has them.
QL_KERNEL_FOR_WIDE_REGISTERS void srgbCubeRow(const SrgbCube& job, const float* in, float* out,
                                              int width) {
    int x = 0;
    for (; job.batched && x + 8 <= width; x += 8) {
        prefetchAhead(in + 4 * x);
        if (srgbCubeEight(job, in + 4 * x, out + 4 * x)) [[likely]]
            continue;
        for (int k = x; k < x + 8; ++k)
            srgbCubePixel(job, in + 4 * k, out + 4 * k);
    }
    for (; x < width; ++x)
        srgbCubePixel(job, in + 4 * x, out + 4 * x);
}

}  // namespace

Image colorCube(Image input, const ColorCubeParams& p, const Execution& exec) {
    const int n = p.dimension;
    // The upper limit only keeps the size computation from overflowing.
    if (input.empty() || !p.data || n < 2 || n > 1024 ||
        p.data->size() != size_t(n) * size_t(n) * size_t(n) * 4)
        return input;
    const Cube cube{p.data->data(), n - 1, size_t(n) * 4, size_t(n) * size_t(n) * 4};
    const float scale = float(n - 1);
    if (!p.sRGBSpace) {
        return mapUnpremultiplied(std::move(input), exec, [&cube, scale](float* c) {
            const float in[3] = {c[0], c[1], c[2]};
            const float t[3] = {clamp01(c[0]) * scale, clamp01(c[1]) * scale,
                                clamp01(c[2]) * scale};
            const auto copy = [](simd::v4 v, float* o) { o[0] = v[0], o[1] = v[1], o[2] = v[2]; };
            copy(trilinear(cube, t), c);
            extend(cube, in, t, c, copy, {1 / scale, -1 / scale});
        });
    }
    // Through the same decode as the lookups, so that an identity cube continues with slope 1.
    float nodes[3];
    decodeInto(simd::v4{1, float(n - 2) / scale, 1 / scale, 0}, nodes);
    const EdgeRuns runs{nodes[0] - nodes[1], srgbDecodeUnit(simd::splat(0.0f))[0] - nodes[2]};
    const SrgbCube job{cube, SrgbEncodeTable::shared(), scale, runs,
                       p.data->size() < size_t(std::numeric_limits<int>::max())};
    Image out = Image::resultFor(input);
    const int w = input.width();
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            srgbCubeRow(job, input.row(y), out.row(y), w);
    });
    return done ? out : Image{};
}

}  // namespace ql::img
