#include "SrgbTransfer.h"

#include <cmath>

#include "PixelMap.h"

namespace ql::img {

float srgbEncode(float linear) {
    const double x = std::abs(double(linear));
    const double e = x <= 0.0031308 ? 12.92 * x : 1.055 * std::pow(x, 1 / 2.4) - 0.055;
    return float(std::copysign(e, double(linear)));
}

float srgbDecode(float encoded) {
    const double x = std::abs(double(encoded));
    const double d = x <= 0.04045 ? x / 12.92 : std::pow((x + 0.055) / 1.055, 2.4);
    return float(std::copysign(d, double(encoded)));
}

SrgbEncodeTable::SrgbEncodeTable() {
    const int steps = kOctaves << kMantissaBits;
    // One node past 1, equal to it: 1 itself reads the node above its own, with weight 0.
    nodes_.resize(size_t(steps) + 2);
    for (int k = 0; k <= steps; ++k) {
        const double octave = std::ldexp(1.0, (k >> kMantissaBits) - kOctaves);
        const double x =
            octave * (1 + double(k & ((1 << kMantissaBits) - 1)) / (1 << kMantissaBits));
        nodes_[size_t(k)] = srgbEncode(float(x));
    }
    nodes_[size_t(steps) + 1] = nodes_[size_t(steps)];
}

const SrgbEncodeTable& SrgbEncodeTable::shared() {
    static const SrgbEncodeTable table;
    return table;
}

SrgbDecodeTable::SrgbDecodeTable() {
    nodes_.resize(kSteps + 2);
    for (int k = 0; k <= kSteps; ++k)
        nodes_[size_t(k)] = srgbDecode(float(double(k) / kSteps));
    nodes_[kSteps + 1] = nodes_[kSteps];  // 1 reads one node past its own
}

const SrgbDecodeTable& SrgbDecodeTable::shared() {
    static const SrgbDecodeTable table;
    return table;
}

Image linearToSRGB(const Image& input, const Execution& exec) {
    if (input.empty()) return input;
    const SrgbEncodeTable& encode = SrgbEncodeTable::shared();
    return mapUnpremultiplied(input, exec, [&](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = encode(c[i]);
    });
}

Image srgbToLinear(const Image& input, const Execution& exec) {
    if (input.empty()) return input;
    const SrgbDecodeTable& decode = SrgbDecodeTable::shared();
    return mapUnpremultiplied(input, exec, [&](float* c) {
        for (int i = 0; i < 3; ++i)
            c[i] = decode(c[i]);
    });
}

}  // namespace ql::img
