#include "CropRegion.h"

#include <algorithm>
#include <cstring>

namespace ql::img {

Image crop(const Image& input, const PixelRect& r, const Execution& exec) {
    if (input.empty()) return input;
    // Clip in 64 bits so that huge rectangles can't overflow.
    const long long x0 = std::max<long long>(r.x, 0), y0 = std::max<long long>(r.y, 0);
    const long long x1 = std::min<long long>((long long)r.x + std::max(r.width, 0), input.width());
    const long long y1 =
        std::min<long long>((long long)r.y + std::max(r.height, 0), input.height());
    if (x1 <= x0 || y1 <= y0) return {};
    if (x0 == 0 && y0 == 0 && x1 == input.width() && y1 == input.height()) return input;
    Image out = Image::forOverwrite(int(x1 - x0), int(y1 - y0));
    const size_t rowBytes = size_t(out.width()) * 4 * sizeof(float);
    const bool done = parallelFor(0, out.height(), exec, [&](int a, int b) {
        for (int y = a; y < b; ++y)
            std::memcpy(out.row(y), input.row(int(y0) + y) + x0 * 4, rowBytes);
    });
    return done ? out : Image{};
}

}  // namespace ql::img
