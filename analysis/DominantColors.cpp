#include <algorithm>
#include <array>

#include "Hsl.h"
#include "ImageAnalyzer.h"
#include "imaging/SrgbTransfer.h"

namespace ql::ImageAnalyzer {

std::vector<DominantColor> dominantColors(const PixelBuffer& buffer, int count) {
    const size_t pixels = buffer.count();
    if (count <= 0 || pixels == 0) return {};
    const img::SrgbEncodeTable& encode = img::SrgbEncodeTable::shared();
    using Rgb = std::array<double, 3>;
    const size_t stride = std::max<size_t>(pixels / 3000, 1);
    std::vector<Rgb> samples;
    samples.reserve(pixels / stride + 1);
    for (size_t i = 0; i < pixels; i += stride) {
        const float* p = buffer.pixels.data() + i * 4;
        samples.push_back({p[0] > 0 ? encode(p[0]) : 0.0, p[1] > 0 ? encode(p[1]) : 0.0,
                           p[2] > 0 ? encode(p[2]) : 0.0});
    }
    const size_t n = samples.size(), k = size_t(count);
    if (n <= k) return {};

    std::vector<Rgb> centres(k);
    for (size_t i = 0; i < k; ++i)
        centres[i] = samples[i * n / k];
    std::vector<size_t> members(k), owner(n);
    for (int round = 0; round < 12; ++round) {
        std::vector<Rgb> sums(k, Rgb{0, 0, 0});
        std::fill(members.begin(), members.end(), 0);
        for (size_t s = 0; s < n; ++s) {
            size_t best = 0;
            double bestDistance = 0;
            for (size_t c = 0; c < k; ++c) {
                double d = 0;
                for (int j = 0; j < 3; ++j)
                    d += (samples[s][j] - centres[c][j]) * (samples[s][j] - centres[c][j]);
                if (c == 0 || d < bestDistance) best = c, bestDistance = d;
            }
            owner[s] = best;
            ++members[best];
            for (int j = 0; j < 3; ++j)
                sums[best][j] += samples[s][j];
        }
        for (size_t c = 0; c < k; ++c)
            if (members[c])
                for (int j = 0; j < 3; ++j)
                    centres[c][j] = sums[c][j] / double(members[c]);
    }

    std::vector<DominantColor> out;
    for (size_t c = 0; c < k; ++c) {
        const double share = double(members[c]) / double(n);
        if (share <= 0.03) continue;
        const double r = std::min(centres[c][0], 1.0), g = std::min(centres[c][1], 1.0),
                     b = std::min(centres[c][2], 1.0);
        out.push_back({int(c), r, g, b, share, colorName(r, g, b)});
    }
    std::stable_sort(out.begin(), out.end(), [](const DominantColor& a, const DominantColor& b) {
        return a.share > b.share;
    });
    return out;
}

std::string colorName(double r, double g, double b) {
    const Hsl c = hslOf(r, g, b);
    const double h = c.hue, l = c.lightness;
    if (l > 0.88) return "trắng";
    if (l < 0.12) return "đen";
    if (c.gray || c.saturation < 0.12) return l <= 0.6 ? "xám" : "xám sáng";
    if (h < 15 || h >= 345) return "đỏ";
    if (h < 40) return l >= 0.45 ? "cam" : "nâu";
    if (h < 70) return "vàng";
    if (h < 165) return "xanh lá";
    if (h < 200) return "xanh ngọc";
    if (h < 255) return "xanh dương";
    if (h < 290) return "tím";
    return "hồng";
}

}  // namespace ql::ImageAnalyzer
