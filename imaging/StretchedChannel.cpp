#include "StretchedChannel.h"

#include <algorithm>

namespace ql::img {

StretchedChannel::StretchedChannel(const Image& image, int channel, int width, double sx, double sy)
    : image_(image),
      channel_(channel),
      width_(width),
      sy_(sy),
      same_(sx == 1 && sy == 1 && width == image.width()) {
    if (same_) return;
    for (int x = 0; x < width; ++x) {
        const auto [at, weight] = tap(x, sx, image.width());
        x0_.push_back(at), wx_.push_back(weight);
    }
}

std::pair<int, float> StretchedChannel::tap(int i, double scale, int size) {
    const double at = std::clamp((i + 0.5) * scale - 0.5, 0.0, double(size - 1));
    const int first = int(at);
    return {first, float(at - first)};
}

void StretchedChannel::row(int y, float* out) const {
    if (same_) {
        const float* r = image_.row(std::min(y, image_.height() - 1)) + channel_;
        for (int x = 0; x < width_; ++x)
            out[x] = r[4 * x];
        return;
    }
    const auto [y0, wy] = tap(y, sy_, image_.height());
    const float* a = image_.row(y0) + channel_;
    const float* b = image_.row(std::min(y0 + 1, image_.height() - 1)) + channel_;
    const int last = image_.width() - 1;
    for (int x = 0; x < width_; ++x) {
        const int i = x0_[size_t(x)], j = std::min(i + 1, last);
        const float wx = wx_[size_t(x)];
        const float top = a[4 * i] + (a[4 * j] - a[4 * i]) * wx;
        const float bottom = b[4 * i] + (b[4 * j] - b[4 * i]) * wx;
        out[x] = top + (bottom - top) * wy;
    }
}

}  // namespace ql::img
