#include "Watermark.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <string_view>

#include "imaging/Execution.h"
#include "imaging/LanczosScale.h"
#include "imaging/codec/DecodeError.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/draw/TextImage.h"

namespace ql {
namespace {

constexpr double kMargin = 0.03;       // of the short edge
constexpr double kTextHeight = 0.35;   // of size × the short edge
constexpr double kMinTextHeight = 12;  // pixels
constexpr double kMaxStampFactor = 4;  // a stamp side at most this many long edges
constexpr uint64_t kMaxLogoBytes = uint64_t(256) << 20;

// The factor (at most 1) that brings a stamp of w × h within the side limit and the text
// picture's pixel limit, which holds for logos too.
double fitFactor(double w, double h, double maxSide) {
    double f = 1;
    f = std::min(f, maxSide / std::max(w, h));
    if (w * h > img::kMaxTextPixels) f = std::min(f, std::sqrt(img::kMaxTextPixels / (w * h)));
    return f * (f < 1 ? 0.999 : 1.0);  // keep rounding from landing just over the limit
}

bool blank(std::string_view text) {
    return text.find_first_not_of(" \t\r\n\f\v") == std::string_view::npos;
}

// Nullopt when the file is missing or not an image: the text stands in. An empty image when the
// logo loads but comes out under a pixel: then nothing is stamped.
std::optional<img::Image> logoStamp(const std::string& path, double longEdge, double size,
                                    double maxSide) {
    img::Image decoded;
    try {
        const std::vector<uint8_t> bytes = img::readFileBytes(path, kMaxLogoBytes);
        // A JPEG need not be decoded much beyond the size it is stamped at.
        const img::ImageHeader header = img::readImageHeader(bytes);
        const double wanted = std::min(longEdge * size, maxSide) *
                              std::max(header.width, header.height) / std::max(header.width, 1);
        decoded = img::decodeImage(
            bytes, wanted >= 1 && wanted < img::kMaxSide ? int(std::ceil(wanted)) : 0);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    if (decoded.empty()) return std::nullopt;
    double w = longEdge * size;
    double h = decoded.height() * w / decoded.width();
    if (!(w > 0) || !(h > 0)) return img::Image{};
    const double f = fitFactor(w, h, maxSide);
    w *= f, h *= f;
    const long iw = std::lround(w), ih = std::lround(h);
    if (iw < 1 || ih < 1) return img::Image{};
    return img::resize(decoded, int(iw), int(ih));
}

img::Image textStamp(const std::string& text, double shortEdge, double size, double maxSide) {
    // Capped first so that measuring never meets infinities; the fit below shrinks it further.
    double height = std::min(std::max(shortEdge * size * kTextHeight, kMinTextHeight), maxSide);
    const img::TextExtent e = img::textExtent(text, height);
    if (!(e.width > 0 && e.height > 0)) return {};
    height *= fitFactor(e.width, e.height, std::min(maxSide, double(img::kMaxTextSide)));
    return img::textImage(text, height);
}

// In place: the stamp was made here and no one else holds it.
void fade(img::Image& image, float opacity) {
    if (opacity >= 1) return;
    float* p = image.data();
    for (size_t i = 0, n = image.pixelCount() * 4; i < n; ++i)
        p[i] *= opacity;
}

}  // namespace

std::optional<WatermarkOverlay> overlay(const Watermark& watermark, int width, int height) {
    if (width < 1 || height < 1) return std::nullopt;
    const double opacity = std::clamp(watermark.opacity, 0.0, 1.0);  // NaN stays NaN
    if (!(opacity > 0)) return std::nullopt;
    const double size = std::isfinite(watermark.size) ? watermark.size : 0;
    const double L = std::max(width, height), S = std::min(width, height);
    const double maxSide = kMaxStampFactor * L;

    img::Image image;
    std::optional<img::Image> fromLogo;
    if (watermark.imagePath) fromLogo = logoStamp(*watermark.imagePath, L, size, maxSide);
    if (fromLogo)
        image = *fromLogo;
    else if (!blank(watermark.text))
        image = textStamp(watermark.text, S, size, maxSide);
    if (image.empty()) return std::nullopt;

    // Placed in a frame with its origin at the bottom left, then turned to rows from the top.
    const double w = image.width(), h = image.height();
    const double margin = S * kMargin;
    double x = 0, y = 0;
    switch (watermark.corner) {
        case Watermark::Corner::bottomRight:
            x = width - w - margin, y = margin;
            break;
        case Watermark::Corner::bottomLeft:
            x = margin, y = margin;
            break;
        case Watermark::Corner::topRight:
            x = width - w - margin, y = height - h - margin;
            break;
        case Watermark::Corner::topLeft:
            x = margin, y = height - h - margin;
            break;
        case Watermark::Corner::center:
            x = (width - w) / 2, y = (height - h) / 2;
            break;
    }
    WatermarkOverlay result;
    fade(image, float(opacity));
    result.image = image;
    result.x = int(std::lround(x));
    result.y = int(std::lround(height - (y + h)));
    return result;
}

img::Image stamp(const img::Image& picture, const Watermark& watermark) {
    if (picture.empty()) return picture;
    const std::optional<WatermarkOverlay> o = overlay(watermark, picture.width(), picture.height());
    if (!o) return picture;

    const int W = picture.width(), H = picture.height();
    const int x0 = std::max(o->x, 0), x1 = int(std::min<long>(long(o->x) + o->image.width(), W));
    const int y0 = std::max(o->y, 0), y1 = int(std::min<long>(long(o->y) + o->image.height(), H));
    img::Image out = img::Image::forOverwrite(W, H);
    img::parallelFor(0, H, {}, [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            float* d = out.row(y);
            std::memcpy(d, picture.row(y), size_t(W) * 4 * sizeof(float));
            if (y < y0 || y >= y1 || x0 >= x1) continue;
            const float* s = o->image.row(y - o->y) + size_t(x0 - o->x) * 4;
            d += size_t(x0) * 4;
            for (int x = x0; x < x1; ++x, s += 4, d += 4) {
                const float keep = 1 - s[3];
                for (int c = 0; c < 4; ++c)
                    d[c] = s[c] + d[c] * keep;
            }
        }
    });
    return out;
}

}  // namespace ql
