#include "QtImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "imaging/Execution.h"
#include "imaging/PixelMap.h"
#include "imaging/Simd.h"
#include "imaging/SrgbTransfer.h"
#include "imaging/codec/OutputSamples.h"

namespace ql::img {

namespace {

// One pixel of any alpha.
void toRgba8(const uint8_t* codes, const SrgbEncodeTable& encode, const float* in, uint8_t* px) {
    if (in[3] >= 1) {  // opaque, nearly every pixel
        srgb8CodesOf(codes, in, px);
        px[3] = 255;
        return;
    }
    const float a = std::min(in[3], 1.0f);
    if (!(a > 0)) {  // NaN too
        px[0] = px[1] = px[2] = px[3] = 0;
        return;
    }
    for (int c = 0; c < 3; ++c)
        px[c] = uint8_t(encode.clamped(in[c] * (1 / a)) * a * 255 + 0.5f);
    px[3] = uint8_t(a * 255 + 0.5f);
}

// Eight opaque pixels, their table indices computed together; false, having written nothing,
// where one of them is not opaque.
[[gnu::always_inline]] inline bool eightOpaque(const uint8_t* codes, const float* in,
                                               uint8_t* out) {
    using simd::v8, simd::v8i;
    uint32_t px[8];
    for (int p = 0; p < 4; ++p) {
        v8 q = simd::load8(in + 8 * p);
        if (!(q[3] >= 1) || !(q[7] >= 1)) return false;
        q = q > 0.0f ? q : 0.0f;  // NaN fails the test, as in srgb8Code
        q = q < 1.0f ? q : 1.0f;
        const v8i i = __builtin_convertvector(q * 65536.0f + 0.5f, v8i);
        px[2 * p] = codes[i[0]] | uint32_t(codes[i[1]]) << 8 | uint32_t(codes[i[2]]) << 16;
        px[2 * p + 1] = codes[i[4]] | uint32_t(codes[i[5]]) << 8 | uint32_t(codes[i[6]]) << 16;
    }
    for (uint32_t& v : px)
        v |= 0xff000000u;  // bytes in memory order R, G, B, A
    std::memcpy(out, px, sizeof px);
    return true;
}

[[gnu::target_clones("arch=x86-64-v3", "default")]] void toRgba8Row(const uint8_t* codes,
                                                                    const SrgbEncodeTable& encode,
                                                                    const float* in, uint8_t* out,
                                                                    int width) {
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        prefetchAhead(in + 4 * x);
        if (!eightOpaque(codes, in + 4 * x, out + 4 * x))
            for (int k = x; k < x + 8; ++k)
                toRgba8(codes, encode, in + 4 * k, out + 4 * k);
    }
    for (; x < width; ++x)
        toRgba8(codes, encode, in + 4 * x, out + 4 * x);
}

}  // namespace

QImage toQImage(const Image& image) {
    if (image.empty()) return {};
    QImage out(image.width(), image.height(), QImage::Format_RGBA8888_Premultiplied);
    if (out.isNull()) return {};  // Qt could not allocate
    const SrgbEncodeTable& encode = SrgbEncodeTable::shared();
    const uint8_t* codes = srgb8Codes();
    uchar* bits = out.bits();
    const qsizetype line = out.bytesPerLine();
    parallelFor(0, image.height(), {}, [&](int begin, int end) {
        for (int y = begin; y < end; ++y)
            toRgba8Row(codes, encode, image.row(y), bits + y * line, image.width());
    });
    return out;
}

Image fromQImage(const QImage& image) {
    if (image.isNull()) return {};
    // 16 bits hold every 8-bit value exactly (v × 257), so the conversion loses nothing; a
    // premultiplied source stays premultiplied so that Qt does not divide in integers.
    const bool premultiplied = image.pixelFormat().premultiplied() == QPixelFormat::Premultiplied;
    const QImage src = image.convertToFormat(premultiplied ? QImage::Format_RGBA64_Premultiplied
                                                           : QImage::Format_RGBA64);
    if (src.isNull()) return {};
    Image out = Image::forOverwrite(src.width(), src.height());
    if (out.empty()) return {};
    const SrgbDecodeTable& decode = SrgbDecodeTable::shared();
    parallelFor(0, src.height(), {}, [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            const auto* px = reinterpret_cast<const uint16_t*>(src.constScanLine(y));
            float* o = out.row(y);
            for (int x = 0; x < src.width(); ++x, px += 4, o += 4) {
                const float a = px[3] / 65535.0f;
                for (int c = 0; c < 3; ++c) {
                    float v = px[c] / 65535.0f;
                    if (premultiplied) v = a > 0 ? std::min(v / a, 1.0f) : 0;
                    o[c] = decode(v) * a;
                }
                o[3] = a;
            }
        }
    });
    return out;
}

}  // namespace ql::img
