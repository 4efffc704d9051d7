// The sRGB transfer curve: linear light to the encoded values that screens and image files use,
// and back.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "Execution.h"
#include "Image.h"
#include "Simd.h"

namespace ql::img {

/// Linear to encoded: 12.92·x up to 0.0031308, 1.055·x^(1/2.4) − 0.055 above. Negative values
/// mirror the curve (f(−x) = −f(x)); values above 1 continue the power segment.
float srgbEncode(float linear);
/// Encoded to linear, the exact inverse: x / 12.92 up to 0.04045, ((x + 0.055) / 1.055)^2.4
/// above, mirrored for negative values.
float srgbDecode(float encoded);

/// srgbEncode by table for inputs clamped to [0, 1]: the operations that evaluate the curve per
/// channel per pixel use it instead of pow. The table is indexed by the float's exponent and top
/// mantissa bits (256 nodes an octave), so the error stays below 1e-6 over the whole range, where
/// a uniform table would need far more nodes near black.
class SrgbEncodeTable {
  public:
    SrgbEncodeTable();
    // Copying the nodes costs an allocation: pass the table by reference.
    SrgbEncodeTable(const SrgbEncodeTable&) = delete;
    SrgbEncodeTable& operator=(const SrgbEncodeTable&) = delete;
    /// The one table of the process, built on first use; immutable, so threads share it.
    static const SrgbEncodeTable& shared();
    /// Encoded value of `linear` clamped to [0, 1]; NaN gives 0.
    float clamped(float linear) const {
        if (!(linear > 0)) return 0;
        if (linear >= 1) return 1;
        if (linear < kStart) return 12.92f * linear;  // below the table: the straight segment
        uint32_t bits;
        std::memcpy(&bits, &linear, sizeof bits);
        const size_t i = (bits >> kShift) - kFirstIndex;
        const float f = float(bits & ((1u << kShift) - 1)) * (1.0f / (1u << kShift));
        return nodes_[i] + f * (nodes_[i + 1] - nodes_[i]);
    }
    /// clamped() of four or eight values at once (simd::v4 or simd::v8): the same result, lane
    /// by lane.
    template <class V>
    [[gnu::always_inline]] V clamped(V linear) const {
        using VI = decltype(linear < linear);
        constexpr int lanes = sizeof(V) / sizeof(float);
        const V zero = V{} + 0.0f, one = V{} + 1.0f;
        V x = linear > zero ? linear : zero;  // NaN fails the test
        x = x < one ? x : one;
        VI bits;
        std::memcpy(&bits, &x, sizeof bits);
        VI i = (bits >> kShift) - int(kFirstIndex);
        i = i > 0 ? i : 0;  // below the table, where the straight segment is taken instead
        const V f =
            __builtin_convertvector(bits & ((1 << kShift) - 1), V) * (1.0f / (1u << kShift));
        const float* n = nodes_.data();
        V lo, hi;
        for (int k = 0; k < lanes; ++k) {
            lo[k] = n[i[k]];
            hi[k] = n[i[k] + 1];
        }
        const V table = lo + f * (hi - lo);
        return x < kStart ? x * 12.92f : table;
    }
    /// Any value: the table inside [0, 1], the exact curve outside.
    float operator()(float linear) const {
        return linear >= 0 && linear <= 1 ? clamped(linear) : srgbEncode(linear);
    }

  private:
    static constexpr int kOctaves = 9;  // the table covers [2^-9, 1]
    static constexpr int kMantissaBits = 8;
    static constexpr int kShift = 23 - kMantissaBits;
    static constexpr uint32_t kFirstIndex = uint32_t(127 - kOctaves) << kMantissaBits;
    static constexpr float kStart = 1.0f / (1 << kOctaves);
    std::vector<float> nodes_;
};

/// srgbDecode by a uniform table over [0, 1] (the curve is smooth there; error below 1e-6), the
/// exact curve outside.
class SrgbDecodeTable {
  public:
    SrgbDecodeTable();
    SrgbDecodeTable(const SrgbDecodeTable&) = delete;
    SrgbDecodeTable& operator=(const SrgbDecodeTable&) = delete;
    /// The one table of the process, built on first use; immutable, so threads share it.
    static const SrgbDecodeTable& shared();
    float operator()(float encoded) const {
        if (!(encoded >= 0 && encoded <= 1)) return srgbDecode(encoded);
        const float t = encoded * kSteps;
        const int i = int(t);
        const float f = t - float(i);
        return nodes_[i] + f * (nodes_[i + 1] - nodes_[i]);
    }

  private:
    static constexpr int kSteps = 1024;
    std::vector<float> nodes_;
};

/// srgbDecode of four or eight values in [0, 1] at once (outside, the result is undefined): the
/// straight segment, and above it a degree-9 polynomial fitted at Chebyshev nodes, within 4e-7 of
/// the curve. For operations that decode three channels a pixel, where tables cost more.
template <class V>
[[gnu::always_inline]] inline V srgbDecodeUnit(V encoded) {
    constexpr float from = 0.04045f, to = 1.0f;
    static constexpr float c[10] = {
        0.233240768f,   0.466891408f,     0.272598803f,    0.0303106252f,    -0.00384194683f,
        0.00104290666f, -0.000240251204f, 7.92390492e-05f, -0.000191748666f, 0.000110271831f};
    const V u = (encoded + encoded - (from + to)) * (1.0f / (to - from));
    // Estrin's scheme: a shallow tree of products instead of Horner's chain of nine.
    const V u2 = u * u, u4 = u2 * u2, u8 = u4 * u4;
    const V curve = (c[0] + c[1] * u) + u2 * (c[2] + c[3] * u) +
                    u4 * ((c[4] + c[5] * u) + u2 * (c[6] + c[7] * u)) + u8 * (c[8] + c[9] * u);
    const V straight = encoded * (1.0f / 12.92f);
    return encoded <= from ? straight : curve;
}

/// Encodes every pixel's colour (unpremultiplied where 0 < alpha < 1, premultiplied again after;
/// alpha 0 gives colour 0); alpha is kept.
Image linearToSRGB(const Image& input, const Execution& exec = {});
/// The inverse of linearToSRGB, with the same alpha handling.
Image srgbToLinear(const Image& input, const Execution& exec = {});

}  // namespace ql::img
