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
        struct Tile {
            int x0, w, h;
        };
        std::vector<Tile> tiles;
        int rowHeight = 0;
        for (int x0 = 0; x0 < width; ++index) {
            const img::Image& p = photos[index % photos.size()];
            const int w = std::min(p.width(), width - x0), h = std::min(p.height(), height - y0);
            for (int y = 0; y < h; ++y)
                std::copy(p.row(y), p.row(y) + size_t(w) * 4, out.row(y0 + y) + size_t(x0) * 4);
            tiles.push_back({x0, w, h});
            x0 += w;
            rowHeight = std::max(rowHeight, h);
        }
        // A tile shorter than its row leaves a gap below it: repeat the tile's last row there.
        for (const Tile& t : tiles)
            for (int y = t.h; y < rowHeight; ++y)
                std::copy(out.row(y0 + t.h - 1) + size_t(t.x0) * 4,
                          out.row(y0 + t.h - 1) + size_t(t.x0 + t.w) * 4,
                          out.row(y0 + y) + size_t(t.x0) * 4);
        y0 += rowHeight;
    }
    return out;
}

}  // namespace ql::testing
