#include "QtImage.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "imaging/Execution.h"
#include "imaging/PixelMap.h"
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

// The loop does little for each pixel it reads, so it asks for its input ahead.
void toRgba8Row(const uint8_t* codes, const SrgbEncodeTable& encode, const float* in, uint8_t* out,
                int width) {
    for (int x = 0; x < width; ++x) {
        if (x % 8 == 0) prefetchAhead(in + 4 * x);
        toRgba8(codes, encode, in + 4 * x, out + 4 * x);
    }
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
