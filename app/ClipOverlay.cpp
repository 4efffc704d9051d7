#include "ClipOverlay.h"

#include <algorithm>

namespace ql::ClipOverlay {

QImage make(const QImage& image) {
    if (image.isNull()) return {};
    const QImage in = image.convertToFormat(QImage::Format_RGBA8888);
    QImage out(in.size(), QImage::Format_RGBA8888_Premultiplied);
    for (int y = 0; y < in.height(); ++y) {
        const uchar* s = in.constScanLine(y);
        uchar* d = out.scanLine(y);
        for (int x = 0; x < in.width(); ++x, s += 4, d += 4) {
            const int m = std::max({s[0], s[1], s[2]});
            // Premultiplied by the alpha of 230.
            if (m >= 254)
                d[0] = 207, d[1] = 27, d[2] = 27, d[3] = 230;
            else if (m <= 1)
                d[0] = 18, d[1] = 81, d[2] = 207, d[3] = 230;
            else
                d[0] = d[1] = d[2] = d[3] = 0;
        }
    }
    return out;
}

}  // namespace ql::ClipOverlay
