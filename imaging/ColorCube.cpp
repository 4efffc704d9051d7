#include "ColorCube.h"

#include <algorithm>

#include "PixelMap.h"
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

// `t` holds node coordinates in [0, dimension − 1]; writes the interpolated colour to `out`.
inline void trilinear(const Cube& cube, const float* t, float* out) {
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
    for (int c = 0; c < 3; ++c) {
        const float c00 = p000[c] + f[0] * (p000[c + 4] - p000[c]);
        const float c10 = p010[c] + f[0] * (p010[c + 4] - p010[c]);
        const float c01 = p001[c] + f[0] * (p001[c + 4] - p001[c]);
        const float c11 = p011[c] + f[0] * (p011[c + 4] - p011[c]);
        const float c0 = c00 + f[1] * (c10 - c00);
        const float c1 = c01 + f[1] * (c11 - c01);
        out[c] = c0 + f[2] * (c1 - c0);
    }
}

}  // namespace

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
            const float t[3] = {clamp01(c[0]) * scale, clamp01(c[1]) * scale,
                                clamp01(c[2]) * scale};
            trilinear(cube, t, c);
        });
    }
    const SrgbEncodeTable& encode = SrgbEncodeTable::shared();
    const SrgbDecodeTable& decode = SrgbDecodeTable::shared();
    return mapUnpremultiplied(input, exec, [&](float* c) {
        const float t[3] = {encode.clamped(c[0]) * scale, encode.clamped(c[1]) * scale,
                            encode.clamped(c[2]) * scale};
        trilinear(cube, t, c);
        for (int k = 0; k < 3; ++k)
            c[k] = decode(c[k]);
    });
}

}  // namespace ql::img
