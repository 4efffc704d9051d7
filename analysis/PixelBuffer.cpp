#include "PixelBuffer.h"

#include <algorithm>
#include <cmath>

#include "imaging/LanczosScale.h"

namespace ql {

std::optional<PixelBuffer> PixelBuffer::make(const img::Image& image, double maxSide,
                                             const img::Execution& exec) {
    if (image.empty() || !(maxSide >= 1) || !std::isfinite(maxSide)) return std::nullopt;
    const double scale = std::min(maxSide / image.longEdge(), 1.0);
    const int width = std::max(1, static_cast<int>(image.width() * scale));
    const int height = std::max(1, static_cast<int>(image.height() * scale));
    const img::Image small = (width == image.width() && height == image.height())
                                 ? image
                                 : img::resize(image, width, height, exec);
    if (small.empty()) return std::nullopt;

    PixelBuffer buffer;
    buffer.width = width;
    buffer.height = height;
    buffer.pixels.assign(small.data(), small.data() + small.pixelCount() * 4);
    // Measures read colour as seen: undo premultiplication where a pixel is partly transparent.
    for (size_t i = 0; i < buffer.pixels.size(); i += 4) {
        const float a = buffer.pixels[i + 3];
        if (a > 0 && a < 1) {
            for (int c = 0; c < 3; ++c)
                buffer.pixels[i + c] /= a;
        }
        for (int c = 0; c < 3; ++c)
            if (!std::isfinite(buffer.pixels[i + c])) buffer.pixels[i + c] = 0;
    }
    return buffer;
}

std::array<double, 3> PixelBuffer::average(vision::Point around, int radius) const {
    if (width <= 0 || height <= 0) return {0, 0, 0};
    radius = std::max(radius, 0);
    const int cx = std::clamp(static_cast<int>(around.x * width), 0, width - 1);
    const int cy = std::clamp(static_cast<int>(around.y * height), 0, height - 1);
    const int x0 = std::max(cx - radius, 0), x1 = std::min(cx + radius, width - 1);
    const int y0 = std::max(cy - radius, 0), y1 = std::min(cy + radius, height - 1);
    std::array<double, 3> sum{0, 0, 0};
    for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x)
            for (int c = 0; c < 3; ++c)
                sum[c] += pixel(x, y)[c];
    const double n = double(x1 - x0 + 1) * double(y1 - y0 + 1);
    return {sum[0] / n, sum[1] / n, sum[2] / n};
}

}  // namespace ql
