#include "OutputSamples.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "imaging/SrgbTransfer.h"

namespace ql::img {
namespace {

// Linear light in 1/65536 steps to an 8-bit code: the steps are fine enough that even the
// steep start of the curve (12.92 × 1/65536 of full scale) moves the code by a twentieth.
class EightBitTable {
  public:
    // Each code's first step is found from the inverse curve and settled by the forward one, so
    // the table is exactly lround(srgbEncode(i / kSize) · 255) for 256 evaluations, not 65537.
    EightBitTable() : codes_(kSize + 1) {
        const auto code = [](int i) { return std::lround(srgbEncode(float(i) / kSize) * 255); };
        int from = 0;
        for (int c = 1; c <= 255; ++c) {
            int to = std::clamp(int(std::ceil(srgbDecode((c - 0.5f) / 255) * kSize)), from, kSize);
            while (to > from && code(to - 1) >= c)
                --to;
            while (to <= kSize && code(to) < c)
                ++to;
            std::fill(codes_.begin() + from, codes_.begin() + to, uint8_t(c - 1));
            from = to;
        }
        std::fill(codes_.begin() + from, codes_.end(), uint8_t(255));
    }
    uint8_t operator()(float linear) const { return srgb8Code(codes_.data(), linear); }

    const uint8_t* codes() const { return codes_.data(); }

  private:
    static constexpr int kSize = 65536;
    std::vector<uint8_t> codes_;
};

const EightBitTable& eightBit() {
    static const EightBitTable table;
    return table;
}

// Alpha below 1: undo the premultiplication; transparent pixels are black.
inline float unpremultiplied(float c, float a) {
    return a >= 1 ? c : a > 0 ? c / a : 0;
}

}  // namespace

const uint8_t* srgb8Codes() {
    return eightBit().codes();
}

uint8_t srgb8(float linear) {
    return eightBit()(linear);
}

bool isOpaque(const Image& image) {
    const float* p = image.data();
    for (size_t i = 0, n = image.pixelCount(); i < n; ++i)
        if (p[i * 4 + 3] < 1) return false;
    return true;
}

void toSrgb8(const float* rgba, int width, uint8_t* out, int channels) {
    const EightBitTable& code = eightBit();
    if (channels == 3) {
        // The common case of a photo: opaque pixels need no unpremultiplication.
        int x = 0;
        const uint8_t* codes = code.codes();
        for (; x < width && rgba[x * 4 + 3] >= 1; ++x)
            srgb8CodesOf(codes, rgba + x * 4, out + x * 3);
        if (x == width) return;
        rgba += x * 4, out += x * 3, width -= x;
    }
    for (int x = 0; x < width; ++x, rgba += 4, out += channels) {
        const float a = rgba[3];
        for (int c = 0; c < 3; ++c)
            out[c] = code(unpremultiplied(rgba[c], a));
        if (channels == 4) out[3] = uint8_t(std::lround(std::clamp(a, 0.0f, 1.0f) * 255));
    }
}

void toSrgb16(const float* rgba, int width, uint16_t* out, int channels) {
    const SrgbEncodeTable& encode = SrgbEncodeTable::shared();
    for (int x = 0; x < width; ++x, rgba += 4, out += channels) {
        const float a = rgba[3];
        for (int c = 0; c < 3; ++c)
            out[c] = uint16_t(encode.clamped(unpremultiplied(rgba[c], a)) * 65535 + 0.5f);
        if (channels == 4) out[3] = uint16_t(std::clamp(a, 0.0f, 1.0f) * 65535 + 0.5f);
    }
}

}  // namespace ql::img
