#include "TextImage.h"

#include <QCoreApplication>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QTransform>
#include <cmath>
#include <optional>

#include "imaging/Execution.h"
#include "imaging/GaussianBlur.h"

namespace ql::img {
namespace {

// Outlines are taken at this size and scaled: QFont sizes are whole pixels, and a large size
// keeps the advances free of pixel rounding.
constexpr int kReferencePixels = 512;
constexpr qsizetype kMaxCharacters = 10000;

constexpr double kInset = 0.3;
constexpr double kShadowDrop = 0.04;
constexpr double kShadowBlur = 0.15;
constexpr float kShadowAlpha = 0.6f;

struct Layout {
    QPainterPath path;  // Qt's frame: baseline at y = 0, y down
    QRectF bounds;
    double inset = 0;
    double width = 0, height = 0;  // bounds plus the inset on both sides
};

bool haveGuiApplication() {
    return qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
}

std::optional<Layout> layOut(std::string_view utf8Text, double height) {
    if (!haveGuiApplication() || !(height > 0) || !std::isfinite(height)) return std::nullopt;
    const QString text = QString::fromUtf8(utf8Text.data(), qsizetype(utf8Text.size()));
    if (text.size() > kMaxCharacters) return std::nullopt;

    QFont font(QStringLiteral("Noto Sans"));
    font.setStyleHint(QFont::SansSerif);
    font.setWeight(QFont::Medium);
    font.setPixelSize(kReferencePixels);
    QPainterPath outline;
    outline.addText(0, 0, font, text);
    if (outline.isEmpty()) return std::nullopt;

    Layout l;
    const double k = height / kReferencePixels;
    l.path = QTransform::fromScale(k, k).map(outline);
    l.bounds = l.path.boundingRect();
    if (l.bounds.isEmpty()) return std::nullopt;  // only blanks
    l.inset = height * kInset;
    l.width = l.bounds.width() + 2 * l.inset;
    l.height = l.bounds.height() + 2 * l.inset;
    if (!std::isfinite(l.width) || !std::isfinite(l.height)) return std::nullopt;
    return l;
}

// Antialiased coverage of the path drawn with its origin at `origin`.
QImage coverage(const QPainterPath& path, int width, int height, QPointF origin) {
    QImage mask(width, height, QImage::Format_Alpha8);
    if (mask.isNull()) return mask;
    mask.fill(0);
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(origin);
    painter.fillPath(path, Qt::white);
    return mask;
}

}  // namespace

TextExtent textExtent(std::string_view utf8Text, double height) {
    const std::optional<Layout> l = layOut(utf8Text, height);
    return l ? TextExtent{l->width, l->height} : TextExtent{};
}

Image textImage(std::string_view utf8Text, double height) {
    const std::optional<Layout> l = layOut(utf8Text, height);
    if (!l || !(l->width >= 1 && l->height >= 1)) return {};
    if (l->width > kMaxTextSide || l->height > kMaxTextSide ||
        l->width * l->height > kMaxTextPixels)
        return {};
    const int w = int(l->width), h = int(l->height);

    // The outlines' bounds go to the inset measured from the bottom left, which in Qt's
    // downward frame puts the baseline at h − inset − (depth below the baseline).
    const QPointF origin(l->inset - l->bounds.left(), h - l->inset - l->bounds.bottom());
    const QImage text = coverage(l->path, w, h, origin);
    const QImage drop = coverage(l->path, w, h, origin + QPointF(0, kShadowDrop * height));
    if (text.isNull() || drop.isNull()) return {};

    Image shadow(w, h);
    for (int y = 0; y < h; ++y) {
        const uchar* m = drop.constScanLine(y);
        float* o = shadow.row(y);
        for (int x = 0; x < w; ++x)
            o[x * 4 + 3] = m[x] / 255.0f;
    }
    shadow = gaussianBlur(shadow, {float(kShadowBlur * height), EdgeMode::transparent});

    // White text over the black shadow, premultiplied: the text's coverage t in every channel,
    // plus the shadow's alpha where the text leaves room. Written into the blurred shadow, which
    // no one else holds, to spare a picture's worth of memory.
    parallelFor(0, h, {}, [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            const uchar* t = text.constScanLine(y);
            float* o = shadow.row(y);
            for (int x = 0; x < w; ++x) {
                const float cover = t[x] / 255.0f;
                o[x * 4 + 3] = cover + kShadowAlpha * o[x * 4 + 3] * (1 - cover);
                o[x * 4] = o[x * 4 + 1] = o[x * 4 + 2] = cover;
            }
        }
    });
    return shadow;
}

}  // namespace ql::img
