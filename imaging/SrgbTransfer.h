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

/// srgbDecode of four values in [0, 1] at once (outside, the result is undefined): the straight
/// segment, and above it a degree-9 polynomial fitted at Chebyshev nodes, within 4e-7 of the
/// curve. For operations that decode three channels a pixel, where tables cost more.
inline simd::v4 srgbDecodeUnit(simd::v4 encoded) {
    constexpr float from = 0.04045f, to = 1.0f;
    static constexpr float c[10] = {
        0.233240768f,   0.466891408f,     0.272598803f,    0.0303106252f,    -0.00384194683f,
        0.00104290666f, -0.000240251204f, 7.92390492e-05f, -0.000191748666f, 0.000110271831f};
    const simd::v4 u = (encoded + encoded - (from + to)) * (1.0f / (to - from));
    // Estrin's scheme: a shallow tree of products instead of Horner's chain of nine.
    const simd::v4 u2 = u * u, u4 = u2 * u2, u8 = u4 * u4;
    const auto pair = [&u](float a, float b) { return a + b * u; };
    const simd::v4 curve = pair(c[0], c[1]) + u2 * pair(c[2], c[3]) +
                           u4 * (pair(c[4], c[5]) + u2 * pair(c[6], c[7])) + u8 * pair(c[8], c[9]);
    const simd::v4 straight = encoded * (1.0f / 12.92f);
    return encoded <= from ? straight : curve;
}

/// Encodes every pixel's colour (unpremultiplied where 0 < alpha < 1, premultiplied again after;
/// alpha 0 gives colour 0); alpha is kept.
Image linearToSRGB(const Image& input, const Execution& exec = {});
/// The inverse of linearToSRGB, with the same alpha handling.
Image srgbToLinear(const Image& input, const Execution& exec = {});

}  // namespace ql::img
