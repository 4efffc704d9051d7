#include "ImagePrint.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "PrintDistance.h"

namespace ql::vision {

namespace {

constexpr int grid = 32;   // cells per side of the reduced frame
constexpr int blocks = 4;  // colour and orientation blocks per side
constexpr int thumb = 8;   // lightness thumbnail side
constexpr int bins = 8;    // gradient orientations over half a turn

// sRGB code to linear light, once.
struct Linearise {
    float table[256];
    Linearise() {
        for (int i = 0; i < 256; ++i) {
            const double v = i / 255.0;
            table[i] = float(v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4));
        }
    }
};

float labF(float t) {
    return t > 0.008856f ? std::cbrt(t) : 7.787f * t + 16.0f / 116.0f;
}

void toLab(const float rgb[3], float lab[3]) {
    // Linear sRGB to XYZ (D65), then CIE Lab.
    const float x = (0.4124f * rgb[0] + 0.3576f * rgb[1] + 0.1805f * rgb[2]) / 0.95047f;
    const float y = 0.2126f * rgb[0] + 0.7152f * rgb[1] + 0.0722f * rgb[2];
    const float z = (0.0193f * rgb[0] + 0.1192f * rgb[1] + 0.9505f * rgb[2]) / 1.08883f;
    const float fx = labF(x), fy = labF(y), fz = labF(z);
    lab[0] = 116.0f * fy - 16.0f;
    lab[1] = 500.0f * (fx - fy);
    lab[2] = 200.0f * (fy - fz);
}

// To unit length; a flat frame has no structure and stays all zero.
void normalise(float* v, int n) {
    double sum = 0;
    for (int i = 0; i < n; ++i)
        sum += double(v[i]) * v[i];
    const float s = sum > 1e-12 ? float(1.0 / std::sqrt(sum)) : 0.0f;
    for (int i = 0; i < n; ++i)
        v[i] *= s;
}

}  // namespace

ImagePrint ImagePrint::of(const Bitmap& bitmap) {
    ImagePrint print;
    if (bitmap.empty() || bitmap.rgb.size() < size_t(bitmap.width) * size_t(bitmap.height) * 3)
        return print;
    static const Linearise linear;

    // Mean linear colour of each grid cell from a sparse lattice of its pixels: about 8 x 8 samples
    // per cell average noise out while a 2048-pixel frame costs well under a millisecond.
    float cell[grid][grid][3] = {};
    for (int gy = 0; gy < grid; ++gy) {
        const int y0 = int(int64_t(gy) * bitmap.height / grid);
        const int y1 = std::max(y0 + 1, int(int64_t(gy + 1) * bitmap.height / grid));
        const int sy = std::max(1, (y1 - y0) / 8);
        for (int gx = 0; gx < grid; ++gx) {
            const int x0 = int(int64_t(gx) * bitmap.width / grid);
            const int x1 = std::max(x0 + 1, int(int64_t(gx + 1) * bitmap.width / grid));
            const int sx = std::max(1, (x1 - x0) / 8);
            float sum[3] = {};
            int n = 0;
            for (int y = y0 + sy / 2; y < y1; y += sy) {
                const uint8_t* p = bitmap.row(y);
                for (int x = x0 + sx / 2; x < x1; x += sx, ++n)
                    for (int c = 0; c < 3; ++c)
                        sum[c] += linear.table[p[3 * x + c]];
            }
            for (int c = 0; c < 3; ++c)
                cell[gy][gx][c] = n ? sum[c] / float(n) : 0.0f;
        }
    }

    float lightness[grid][grid];
    float* v = print.values.data();

    // Colour layout: Lab of 4 x 4 blocks, lightness relative to the frame's mean so that a
    // re-exposed frame of a burst keeps its print.
    {
        constexpr int step = grid / blocks;
        float meanL = 0;
        float lab[blocks][blocks][3];
        for (int by = 0; by < blocks; ++by)
            for (int bx = 0; bx < blocks; ++bx) {
                float rgb[3] = {};
                for (int y = by * step; y < (by + 1) * step; ++y)
                    for (int x = bx * step; x < (bx + 1) * step; ++x)
                        for (int c = 0; c < 3; ++c)
                            rgb[c] += cell[y][x][c] / (step * step);
                toLab(rgb, lab[by][bx]);
                meanL += lab[by][bx][0] / (blocks * blocks);
            }
        for (int by = 0; by < blocks; ++by)
            for (int bx = 0; bx < blocks; ++bx, v += 3) {
                v[0] = (lab[by][bx][0] - meanL) / 100.0f;
                v[1] = lab[by][bx][1] / 100.0f;
                v[2] = lab[by][bx][2] / 100.0f;
            }
        for (int y = 0; y < grid; ++y)
            for (int x = 0; x < grid; ++x) {
                float lab1[3];
                toLab(cell[y][x], lab1);
                lightness[y][x] = lab1[0];
            }
    }

    // Lightness thumbnail, zero mean and unit length: the coarse layout of light and dark.
    {
        constexpr int step = grid / thumb;
        float mean = 0;
        for (int ty = 0; ty < thumb; ++ty)
            for (int tx = 0; tx < thumb; ++tx) {
                float s = 0;
                for (int y = ty * step; y < (ty + 1) * step; ++y)
                    for (int x = tx * step; x < (tx + 1) * step; ++x)
                        s += lightness[y][x];
                v[ty * thumb + tx] = s / (step * step);
                mean += v[ty * thumb + tx] / (thumb * thumb);
            }
        for (int i = 0; i < thumb * thumb; ++i)
            v[i] -= mean;
        normalise(v, thumb * thumb);
        v += thumb * thumb;
    }

    // Edge directions: gradient energy of the lightness grid in 8 orientations per block, shared
    // linearly between the two nearest bins so that a slight turn moves energy smoothly.
    {
        constexpr int step = grid / blocks;
        constexpr float pi = 3.14159265f;
        float* hist = v;
        for (int y = 0; y < grid; ++y)
            for (int x = 0; x < grid; ++x) {
                const float gx =
                    lightness[y][std::min(x + 1, grid - 1)] - lightness[y][std::max(x - 1, 0)];
                const float gy =
                    lightness[std::min(y + 1, grid - 1)][x] - lightness[std::max(y - 1, 0)][x];
                const float magnitude = std::sqrt(gx * gx + gy * gy);
                if (magnitude < 1e-6f) continue;
                float angle = std::atan2(gy, gx);
                if (angle < 0) angle += pi;
                const float pos = angle / pi * bins - 0.5f;
                const int b0 = int(std::floor(pos));
                const float f = pos - float(b0);
                float* h = hist + ((y / step) * blocks + x / step) * bins;
                h[(b0 + bins) % bins] += magnitude * (1 - f);
                h[(b0 + 1) % bins] += magnitude * f;
            }
        normalise(hist, blocks * blocks * bins);
    }
    return print;
}

float ImagePrint::distance(const ImagePrint& a, const ImagePrint& b) {
    return euclidean(a.values, b.values);
}

}  // namespace ql::vision
