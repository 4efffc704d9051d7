#include "Bitmap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <opencv2/imgproc.hpp>

#include "imaging/BoxShrink.h"
#include "imaging/SrgbTransfer.h"

namespace ql::vision {

namespace {

// Linear light to 8-bit sRGB by one table lookup: 16384 steps are finer than any 8-bit level
// except the darkest few, where a model can't tell the difference.
constexpr int kEncodeSteps = 16383;

const std::array<uint8_t, kEncodeSteps + 1>& encodeTable() {
    static const auto table = [] {
        std::array<uint8_t, kEncodeSteps + 1> t{};
        for (int i = 0; i <= kEncodeSteps; ++i)
            t[size_t(i)] = uint8_t(img::srgbEncode(float(i) / kEncodeSteps) * 255.0f + 0.5f);
        return t;
    }();
    return table;
}

// Rows [begin, end) of `source` to 8-bit sRGB, unpremultiplied over black.
void encodeRows(const img::Image& source, int begin, int end, uint8_t* out) {
    const auto& table = encodeTable();
    const int w = source.width();
    const auto index = [](float v) {
        return int(std::clamp(v, 0.0f, 1.0f) * float(kEncodeSteps) + 0.5f);
    };
    for (int y = begin; y < end; ++y) {
        const float* in = source.row(y);
        uint8_t* o = out + size_t(y) * size_t(w) * 3;
        for (int x = 0; x < w; ++x, in += 4, o += 3) {
            const float a = in[3];
            const float inv = a == 1.0f ? 1.0f : (a > 1e-6f ? 1.0f / a : 0.0f);
            o[0] = table[index(in[0] * inv)];
            o[1] = table[index(in[1] * inv)];
            o[2] = table[index(in[2] * inv)];
        }
    }
}

}  // namespace

Bitmap Bitmap::of(const img::Image& image, int maxLongEdge, const img::Execution& exec) {
    if (image.empty()) return {};
    // A picture many times the size asked is first averaged in whole blocks, so a huge one never
    // needs an 8-bit copy of its own size.
    img::Image source = image;
    if (maxLongEdge > 0) {
        const int k = image.longEdge() / maxLongEdge;
        if (k >= 2) source = img::boxShrink(image, k, k, exec);
        if (source.empty()) return {};
    }
    Bitmap full;
    full.width = source.width(), full.height = source.height();
    full.rgb.resize(size_t(full.width) * size_t(full.height) * 3);
    // Encoding first and resizing the 8-bit values costs a fraction of resizing floats, and the
    // models were trained on pictures shrunk that way. What remains after the block averages is
    // a shrink by less than two, where a bilinear one leaves no aliasing a model would notice.
    const bool done = img::parallelFor(0, full.height, exec, [&](int begin, int end) {
        encodeRows(source, begin, end, full.rgb.data());
    });
    if (!done) return {};
    if (maxLongEdge <= 0 || source.longEdge() <= maxLongEdge) return full;

    const double s = double(maxLongEdge) / image.longEdge();
    Bitmap out;
    out.width = std::max(1, int(std::lround(image.width() * s)));
    out.height = std::max(1, int(std::lround(image.height() * s)));
    out.rgb.resize(size_t(out.width) * size_t(out.height) * 3);
    const cv::Mat from(full.height, full.width, CV_8UC3, full.rgb.data());
    cv::Mat to(out.height, out.width, CV_8UC3, out.rgb.data());
    cv::resize(from, to, to.size(), 0, 0, cv::INTER_LINEAR);
    return out;
}

}  // namespace ql::vision
