#include "Mosaic.h"

#include <algorithm>

#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"

namespace ql::testing {

img::Image sampleMosaic(int width, int height, const std::vector<std::string>& names) {
    std::vector<img::Image> photos;
    for (const auto& name : names)
        photos.push_back(
            img::decodeImage(img::readFileBytes(std::string(QL_SAMPLES_DIR) + "/" + name)));
    img::Image out = img::Image::forOverwrite(width, height);
    size_t index = 0;
    for (int y0 = 0; y0 < height;) {
        int rowHeight = 0;
        for (int x0 = 0; x0 < width; ++index) {
            const img::Image& p = photos[index % photos.size()];
            const int w = std::min(p.width(), width - x0), h = std::min(p.height(), height - y0);
            for (int y = 0; y < h; ++y)
                std::copy(p.row(y), p.row(y) + size_t(w) * 4, out.row(y0 + y) + size_t(x0) * 4);
            // A short tile leaves a gap below it in this row: fill it from the tile's last row.
            for (int y = h; y < height - y0; ++y)
                std::copy(p.row(h - 1), p.row(h - 1) + size_t(w) * 4,
                          out.row(y0 + y) + size_t(x0) * 4);
            x0 += w;
            rowHeight = std::max(rowHeight, h);
        }
        y0 += rowHeight;
    }
    return out;
}

}  // namespace ql::testing
