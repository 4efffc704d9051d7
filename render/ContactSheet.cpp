#include "ContactSheet.h"

#include <QCoreApplication>
#include <QDate>
#include <QFont>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QLocale>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QSaveFile>
#include <algorithm>
#include <cmath>
#include <exception>

#include "imaging/LanczosScale.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/draw/QtImage.h"

namespace ql::ContactSheet {
namespace {

// The page in points; the layout is worked out with y up from the bottom, as on paper, and
// turned into Qt's downward y by flipY alone.
constexpr double W = 842, H = 595;
constexpr double flipY(double y) {
    return H - y;
}

constexpr int kColumns = 4, kRows = 3, kPerPage = kColumns * kRows;
constexpr double kSide = 30;     // page margin left, right and at the top
constexpr double kHeader = 20;   // from the top margin to the first row
constexpr double kGap = 14;      // between columns, and added between rows
constexpr double kCaption = 16;  // room under a cell for its caption
constexpr double kCellWidth = (W - 2 * kSide - (kColumns - 1) * kGap) / kColumns;
constexpr double kCellHeight = (H - 2 * kSide - kHeader - 2 * kGap) / kRows - kCaption;
constexpr double kLogoHeight = 120, kLogoBottom = 330;
constexpr double kPixelsPerPoint = 3;  // pictures are embedded at about 216 dpi
constexpr int kMaxStars = 5;
constexpr uint64_t kMaxLogoBytes = uint64_t(256) << 20;

QFont sans(int size, QFont::Weight weight) {
    QFont font(QStringLiteral("Noto Sans"));
    font.setStyleHint(QFont::SansSerif);
    font.setWeight(weight);
    font.setPixelSize(size);  // one pixel is one point at the writer's 72 dpi
    return font;
}

QColor grey(double level) {
    return QColor::fromRgbF(float(level), float(level), float(level));
}

// Text at a baseline given in the upward frame.
void text(QPainter& painter, double x, double y, const QString& s, const QFont& font,
          double level) {
    painter.setFont(font);
    painter.setPen(grey(level));
    painter.drawText(QPointF(x, flipY(y)), s);
}

QString elided(const QString& s, const QFont& font, QPaintDevice* device, double width) {
    return QFontMetricsF(font, device).elidedText(s, Qt::ElideRight, std::max(width, 0.0));
}

// The picture drawn into `box` (downward frame): no more pixels than the page can show.
void picture(QPainter& painter, const img::Image& image, const QRectF& box) {
    img::Image shown = image;
    const double w = box.width() * kPixelsPerPoint, h = box.height() * kPixelsPerPoint;
    if (image.width() > w && image.height() > h)
        shown =
            img::resize(image, std::max(1, int(std::lround(w))), std::max(1, int(std::lround(h))));
    const QImage q = img::toQImage(shown);
    if (!q.isNull()) painter.drawImage(box, q);
}

img::Image loadLogo(const std::string& path) {
    try {
        return img::decodeImage(img::readFileBytes(path, kMaxLogoBytes));
    } catch (const std::exception&) {
        return {};  // a missing or broken logo leaves the title page without one
    }
}

void titlePage(QPainter& painter, QPdfWriter& writer, const std::string& title, size_t count,
               const std::optional<std::string>& logoPath) {
    if (logoPath) {
        const img::Image logo = loadLogo(*logoPath);
        if (!logo.empty()) {
            double h = kLogoHeight;
            double w = h * logo.width() / logo.height();
            if (w > W - 4 * kSide) h *= (W - 4 * kSide) / w, w = W - 4 * kSide;  // a banner
            picture(painter, logo, QRectF((W - w) / 2, flipY(kLogoBottom + h), w, h));
        }
    }
    const QFont big = sans(30, QFont::Bold);
    text(painter, 60, 260, elided(QString::fromStdString(title), big, &writer, W - 120), big, 0.1);
    const QString line = QString::number(count) + QStringLiteral(" ảnh · bản xem thử · ") +
                         QLocale().toString(QDate::currentDate(), QLocale::ShortFormat);
    text(painter, 60, 230, line, sans(14, QFont::Medium), 0.4);
}

void gridPage(QPainter& painter, QPdfWriter& writer, const std::string& title, int page, int pages,
              const std::vector<std::string>& names, const std::vector<img::Image>& images,
              const std::vector<int>& ratings) {
    const QFont header = sans(10, QFont::Medium);
    const QString pageText = QStringLiteral("  ·  trang %1/%2").arg(page + 1).arg(pages);
    const double headerRoom =
        W - 2 * kSide - QFontMetricsF(header, &writer).horizontalAdvance(pageText);
    text(painter, kSide, H - kSide + 6,
         elided(QString::fromStdString(title), header, &writer, headerRoom) + pageText, header,
         0.45);

    const QFont caption = sans(8, QFont::Medium);
    const QFontMetricsF metrics(caption, &writer);
    const size_t first = size_t(page) * kPerPage;
    const size_t last = std::min(images.size(), first + kPerPage);
    for (size_t i = first; i < last; ++i) {
        const int k = int(i - first), c = k % kColumns, r = k / kColumns;
        const double x = kSide + c * (kCellWidth + kGap);
        const double y = H - kSide - kHeader - (kCellHeight + kCaption) * (r + 1) - r * kGap +
                         kCaption;  // the cell's lower left, upward frame

        const img::Image& image = images[i];
        if (!image.empty()) {
            const double s = std::min(kCellWidth / image.width(), kCellHeight / image.height());
            const double w = image.width() * s, h = image.height() * s;
            const double left = x + (kCellWidth - w) / 2, bottom = y + (kCellHeight - h) / 2;
            picture(painter, image, QRectF(left, flipY(bottom + h), w, h));
        }

        const QString number = QString::number(i + 1) + QStringLiteral(". ");
        const int rating = i < ratings.size() ? std::clamp(ratings[i], 0, kMaxStars) : 0;
        const QString stars =
            rating > 0 ? QStringLiteral("  ") + QString(rating, QChar(0x2605)) : QString();
        const QString name = i < names.size() ? QString::fromStdString(names[i]) : QString();
        const double room =
            kCellWidth - metrics.horizontalAdvance(number) - metrics.horizontalAdvance(stars);
        text(painter, x, y - 11, number + elided(name, caption, &writer, room) + stars, caption,
             0.25);
    }
}

}  // namespace

bool write(const std::string& path, const std::string& title, const std::vector<std::string>& names,
           const std::vector<img::Image>& images, const std::vector<int>& ratings,
           const std::optional<std::string>& logoPath, std::string* error) {
    const auto fail = [&](const QString& reason) {
        if (error) *error = reason.toStdString();
        return false;
    };
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance()))
        return fail(QStringLiteral("drawing a contact sheet needs a QGuiApplication"));

    // QSaveFile writes beside the target and renames on commit; dropped uncommitted, it
    // removes what it wrote.
    QSaveFile file(QString::fromStdString(path));
    if (!file.open(QIODevice::WriteOnly))
        return fail(QStringLiteral("cannot write %1: %2")
                        .arg(QString::fromStdString(path), file.errorString()));
    {
        QPdfWriter writer(&file);
        writer.setPageSize(QPageSize(QSizeF(W, H), QPageSize::Point));
        writer.setPageMargins(QMarginsF(0, 0, 0, 0));
        writer.setResolution(72);
        writer.setTitle(QString::fromStdString(title));
        writer.setCreator(QStringLiteral("Quillarium"));

        QPainter painter;
        if (!painter.begin(&writer)) return fail(QStringLiteral("cannot start the PDF"));
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        titlePage(painter, writer, title, images.size(), logoPath);

        const int pages = int((images.size() + kPerPage - 1) / kPerPage);
        for (int page = 0; page < pages; ++page) {
            if (!writer.newPage()) {
                painter.end();
                return fail(QStringLiteral("cannot add a page to the PDF"));
            }
            gridPage(painter, writer, title, page, pages, names, images, ratings);
        }
        if (!painter.end()) return fail(QStringLiteral("cannot finish the PDF"));
    }
    if (!file.commit())
        return fail(QStringLiteral("cannot write %1: %2")
                        .arg(QString::fromStdString(path), file.errorString()));
    return true;
}

}  // namespace ql::ContactSheet
