#include "ColorCube.h"

#include <algorithm>

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

// `t` holds node coordinates in [0, dimension − 1]; gives the interpolated node value (its fourth
// lane is the nodes' own). Nodes are RGBA, so one vector lerp interpolates the three channels of
// a node pair at once.
[[gnu::always_inline]] inline simd::v4 trilinear(const Cube& cube, const float* t) {
    using simd::v4;
    int i[3];
    float f[3];
    for (int k = 0; k < 3; ++k) {
        i[k] = std::min(int(t[k]), cube.last - 1);
        f[k] = t[k] - float(i[k]);
    }
    const float* p000 = cube.nodes + size_t(i[0]) * 4 + size_t(i[1]) * cube.greenStride +
                        size_t(i[2]) * cube.blueStride;
    const float* p010 = p000 + cube.greenStride;
    const float* p001 = p000 + cube.blueStride;
    const float* p011 = p001 + cube.greenStride;
    const v4 fr = simd::splat(f[0]), fg = simd::splat(f[1]), fb = simd::splat(f[2]);
    const auto lerp = [](v4 a, v4 b, v4 w) { return a + w * (b - a); };
    const v4 c00 = lerp(simd::load(p000), simd::load(p000 + 4), fr);
    const v4 c10 = lerp(simd::load(p010), simd::load(p010 + 4), fr);
    const v4 c01 = lerp(simd::load(p001), simd::load(p001 + 4), fr);
    const v4 c11 = lerp(simd::load(p011), simd::load(p011 + 4), fr);
    return lerp(lerp(c00, c10, fg), lerp(c01, c11, fg), fb);
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

Image colorCube(const Image& input, const ColorCubeParams& p, const Execution& exec) {
    const int n = p.dimension;
    // The upper limit only keeps the size computation from overflowing.
    if (input.empty() || !p.data || n < 2 || n > 1024 ||
        p.data->size() != size_t(n) * size_t(n) * size_t(n) * 4)
        return input;
    const Cube cube{p.data->data(), n - 1, size_t(n) * 4, size_t(n) * size_t(n) * 4};
    const float scale = float(n - 1);
    if (!p.sRGBSpace) {
        return mapUnpremultiplied(input, exec, [&cube, scale](float* c) {
            const float in[3] = {c[0], c[1], c[2]};
            const float t[3] = {clamp01(c[0]) * scale, clamp01(c[1]) * scale,
                                clamp01(c[2]) * scale};
            const auto copy = [](simd::v4 v, float* o) { o[0] = v[0], o[1] = v[1], o[2] = v[2]; };
            copy(trilinear(cube, t), c);
            extend(cube, in, t, c, copy, {1 / scale, -1 / scale});
        });
    }
    const SrgbEncodeTable& encode = SrgbEncodeTable::shared();
    // Through the same decode as the lookups, so that an identity cube continues with slope 1.
    float nodes[3];
    decodeInto(simd::v4{1, float(n - 2) / scale, 1 / scale, 0}, nodes);
    const EdgeRuns runs{nodes[0] - nodes[1], srgbDecodeUnit(simd::splat(0))[0] - nodes[2]};
    // Written out rather than through mapUnpremultiplied, with everything captured by value: the
    // opaque pixels of a photo then take a path the compiler keeps in registers.
    const auto lookup =
        [ cube, scale, &encode, runs ](const float* in, float* out) __attribute__((always_inline)) {
        const float t[3] = {encode.clamped(in[0]) * scale, encode.clamped(in[1]) * scale,
                            encode.clamped(in[2]) * scale};
        decodeInto(trilinear(cube, t), out);
        if (!inside(in)) [[unlikely]]
            extend(cube, in, t, out, decodeInto, runs);
    };
    return mapPixels(input, exec, [lookup](const float* in, float* out) {
        const float a = in[3];
        if (a >= 1) [[likely]] {
            lookup(in, out);
            out[3] = a;
            return;
        }
        const float u = unpremultiplyScale(a), m = premultiplyScale(a);
        const float c[3] = {in[0] * u, in[1] * u, in[2] * u};
        float o[3];
        lookup(c, o);
        out[0] = o[0] * m, out[1] = o[1] * m, out[2] = o[2] * m, out[3] = a;
    });
}

}  // namespace ql::img
