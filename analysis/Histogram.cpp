#include "Histogram.h"

#include <algorithm>

namespace ql {

std::optional<Histogram> Histogram::compute(const QImage& image) {
    if (image.isNull() || image.width() <= 0 || image.height() <= 0) return std::nullopt;
    QImage small = image;
    const int longEdge = std::max(image.width(), image.height());
    if (longEdge > 600) {
        const double scale = 600.0 / longEdge;
        small = image.scaled(std::max(1, int(image.width() * scale)),
                             std::max(1, int(image.height() * scale)), Qt::IgnoreAspectRatio,
                             Qt::FastTransformation);
    }
    small = small.convertToFormat(QImage::Format_RGBX8888);
    if (small.isNull()) return std::nullopt;

    std::array<std::array<double, 256>, 4> counts{};  // red, green, blue, luma
    for (int y = 0; y < small.height(); ++y) {
        const uchar* p = small.constScanLine(y);
        for (int x = 0; x < small.width(); ++x, p += 4) {
            ++counts[0][p[0]], ++counts[1][p[1]], ++counts[2][p[2]];
            ++counts[3][(54 * p[0] + 183 * p[1] + 19 * p[2]) >> 8];
        }
    }
    Histogram h;
    Curve* curves[4] = {&h.red, &h.green, &h.blue, &h.luma};
    for (int c = 0; c < 4; ++c) {
        // Bins 0 and 255 don't set the scale: a spike of clipped pixels must not flatten the curve.
        const double tallest =
            std::max(1.0, *std::max_element(counts[c].begin() + 1, counts[c].begin() + 255));
        for (int i = 0; i < 256; ++i)
            (*curves[c])[i] = float(std::min(counts[c][i] / tallest, 1.0));
    }
    const double pixels = double(small.width()) * small.height();
    h.clippedHighlights = (counts[0][255] + counts[1][255] + counts[2][255]) / pixels > 0.003;
    h.clippedShadows = (counts[0][0] + counts[1][0] + counts[2][0]) / pixels > 0.003;
    return h;
}

}  // namespace ql
