// The sRGB transfer curve: linear light to the encoded values that screens and image files use,
// and back.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "Execution.h"
#include "Image.h"

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
    /// The one table of the process, built on first use; immutable, so threads share it.
    static const SrgbDecodeTable& shared();
    float operator()(float encoded) const {
        if (!(encoded >= 0 && encoded <= 1)) return srgbDecode(encoded);
        const float t = encoded * kSteps;
        const size_t i = size_t(t);
        const float f = t - float(i);
        return nodes_[i] + f * (nodes_[i + 1] - nodes_[i]);
    }

  private:
    static constexpr int kSteps = 1024;
    std::vector<float> nodes_;
};

/// Encodes every pixel's colour (unpremultiplied where 0 < alpha < 1, premultiplied again after;
/// alpha 0 gives colour 0); alpha is kept.
Image linearToSRGB(const Image& input, const Execution& exec = {});
/// The inverse of linearToSRGB, with the same alpha handling.
Image srgbToLinear(const Image& input, const Execution& exec = {});

}  // namespace ql::img
