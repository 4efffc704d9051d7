#include "ImageAnalyzer.h"

#include <algorithm>
#include <cmath>

#include "Hsl.h"
#include "imaging/SrgbTransfer.h"

namespace ql::ImageAnalyzer {
namespace {

/// Encoded value with negatives (and NaN) taken as black; above 1 the curve continues.
float encode(float linear) {
    static const img::SrgbEncodeTable& table = img::SrgbEncodeTable::shared();
    return linear > 0 ? table(linear) : 0.0f;
}

/// Percentile q of n values is element trunc(q × (n − 1)) of their ascending order.
size_t percentileIndex(size_t n, double q) {
    return std::min(n - 1, static_cast<size_t>(q * double(n - 1)));
}

struct PixelRange {
    int x0, y0, x1, y1;  // half-open
    bool empty() const { return x1 <= x0 || y1 <= y0; }
};

PixelRange pixelRange(double minX, double minY, double maxX, double maxY, const PixelBuffer& b) {
    const auto clampTo = [](double v, int hi) {
        if (!std::isfinite(v)) return 0;
        return static_cast<int>(std::clamp(v, 0.0, double(hi)));
    };
    return {clampTo(minX * b.width, b.width), clampTo(minY * b.height, b.height),
            clampTo(maxX * b.width, b.width), clampTo(maxY * b.height, b.height)};
}

}  // namespace

ImageStats stats(const PixelBuffer& buffer) {
    ImageStats s;
    const size_t n = buffer.count();
    if (n == 0) return s;

    std::vector<float> lumas(n);
    double lumaSum = 0, saturationSum = 0;
    size_t highlights = 0, shadows = 0, skin = 0, sky = 0, foliage = 0;
    for (int y = 0; y < buffer.height; ++y) {
        const bool upperHalf = double(y) < buffer.height / 2.0 - 0.5;
        for (int x = 0; x < buffer.width; ++x) {
            const float* p = buffer.pixel(x, y);
            double r = encode(p[0]), g = encode(p[1]), b = encode(p[2]);
            const double luma = lumaOf(r, g, b);
            lumas[size_t(y) * buffer.width + x] = float(luma);
            lumaSum += luma;
            const double m = std::max({r, g, b});
            if (m >= 0.985) ++highlights;
            if (m <= 0.015) ++shadows;

            r = std::min(r, 1.0), g = std::min(g, 1.0), b = std::min(b, 1.0);
            const Hsl hsl = hslOf(r, g, b);
            if (hsl.gray) continue;
            saturationSum += hsl.saturation;
            const double h = hsl.hue, sat = hsl.saturation, l = hsl.lightness;
            if (h >= 5 && h <= 45 && sat > 0.15 && sat < 0.7 && l > 0.2 && l < 0.85) ++skin;
            if (upperHalf && h >= 195 && h <= 235 && sat > 0.28 && l > 0.45) ++sky;
            if (h >= 70 && h <= 160 && sat > 0.2) ++foliage;
        }
    }
    // Ten order statistics, selected in ascending order, each on what is left above the last:
    // the same elements a full sort would give, at a fraction of its cost.
    struct Wanted {
        double q;
        double ImageStats::*field;
    };
    static constexpr Wanted wanted[] = {{0.005, &ImageStats::p05}, {0.01, &ImageStats::p1},
                                        {0.05, &ImageStats::p5},   {0.1, &ImageStats::p10},
                                        {0.5, &ImageStats::p50},   {0.9, &ImageStats::p90},
                                        {0.95, &ImageStats::p95},  {0.98, &ImageStats::p98},
                                        {0.99, &ImageStats::p99},  {0.995, &ImageStats::p995}};
    size_t from = 0;
    for (const Wanted& w : wanted) {
        const size_t at = percentileIndex(n, w.q);
        if (at >= from) {
            std::nth_element(lumas.begin() + from, lumas.begin() + at, lumas.end());
            from = at + 1;
        }
        s.*w.field = lumas[at];
    }

    const double count = double(n);
    s.mean = lumaSum / count;
    s.clippedHighlights = double(highlights) / count;
    s.clippedShadows = double(shadows) / count;
    s.meanSaturation = saturationSum / count;
    s.skin = double(skin) / count;
    s.sky = double(sky) / count;
    s.foliage = double(foliage) / count;
    const auto neutral = neutralEstimate(buffer);
    s.castR = neutral[0];
    s.castB = neutral[2];
    return s;
}

std::array<double, 3> neutralEstimate(const PixelBuffer& buffer) {
    const size_t n = buffer.count();
    if (n == 0) return {1, 1, 1};
    std::vector<float> lumas(n);
    for (size_t i = 0; i < n; ++i) {
        const float* p = buffer.pixels.data() + i * 4;
        lumas[i] = float(lumaOf(p[0], p[1], p[2]));
    }
    std::vector<float> sorted = lumas;
    std::nth_element(sorted.begin(), sorted.begin() + n / 2, sorted.end());
    const float median = sorted[n / 2];

    double gray[3] = {0, 0, 0}, near[3] = {0, 0, 0}, weight = 0;
    for (size_t i = 0; i < n; ++i) {
        const float* p = buffer.pixels.data() + i * 4;
        if (std::max({p[0], p[1], p[2]}) > 0.97f || !(lumas[i] >= 0.01f)) continue;
        for (int c = 0; c < 3; ++c)
            gray[c] += p[c];
        if (lumas[i] < median) continue;
        const double r = encode(p[0]), g = encode(p[1]), b = encode(p[2]);
        const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
        const double s = (mx - mn) / std::max(mx, 0.0001);
        if (s >= 0.3) continue;
        const double w = 1 - s / 0.3;
        near[0] += w * p[0], near[1] += w * p[1], near[2] += w * p[2];
        weight += w;
    }
    const auto ratios = [](const double* sums) {
        const double g = std::max(sums[1], 1e-6);
        return std::array<double, 2>{sums[0] / g, sums[2] / g};
    };
    std::array<double, 2> result =
        gray[0] + gray[1] + gray[2] > 0 ? ratios(gray) : std::array<double, 2>{1, 1};
    if (weight > 0.02 * double(n)) {
        const auto nn = ratios(near);
        result = {0.35 * result[0] + 0.65 * nn[0], 0.35 * result[1] + 0.65 * nn[1]};
    }
    return {result[0], 1, result[1]};
}

std::vector<FaceInfo> faceInfo(const std::vector<vision::Rect>& rects, const PixelBuffer& buffer) {
    std::vector<FaceInfo> out;
    for (const vision::Rect& rect : rects) {
        const double dx = rect.width * 0.22, dy = rect.height * 0.2;
        const PixelRange range = pixelRange(rect.minX() + dx, rect.minY() + dy, rect.maxX() - dx,
                                            rect.maxY() - dy, buffer);
        if (range.empty()) continue;
        double sum[3] = {0, 0, 0};
        for (int y = range.y0; y < range.y1; ++y)
            for (int x = range.x0; x < range.x1; ++x)
                for (int c = 0; c < 3; ++c)
                    sum[c] += encode(buffer.pixel(x, y)[c]);
        const double count = double(range.x1 - range.x0) * double(range.y1 - range.y0);
        const double r = sum[0] / count, g = sum[1] / count, b = sum[2] / count;
        const Hsl hsl = hslOf(r, g, b);
        out.push_back(
            {rect, lumaOf(r, g, b), hsl.gray ? 0 : hsl.hue, hsl.gray ? 0 : hsl.saturation});
    }
    return out;
}

double sharpness(const PixelBuffer& buffer, const std::vector<vision::Rect>& regions) {
    static const std::vector<vision::Rect> middle{{0.25, 0.25, 0.5, 0.5}};
    const auto& measured = regions.empty() ? middle : regions;
    double total = 0;
    int counted = 0;
    std::vector<float> values;
    for (const vision::Rect& rect : measured) {
        PixelRange range = pixelRange(rect.minX(), rect.minY(), rect.maxX(), rect.maxY(), buffer);
        range = {std::max(range.x0, 1), std::max(range.y0, 1), std::min(range.x1, buffer.width - 1),
                 std::min(range.y1, buffer.height - 1)};
        if (range.empty()) continue;
        // Encoded luma of the region and its one-pixel border.
        const int w = range.x1 - range.x0 + 2, h = range.y1 - range.y0 + 2;
        std::vector<float> plane(size_t(w) * h);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const float* p = buffer.pixel(range.x0 - 1 + x, range.y0 - 1 + y);
                plane[size_t(y) * w + x] = encode(float(lumaOf(p[0], p[1], p[2])));
            }
        values.clear();
        for (int y = 1; y < h - 1; ++y)
            for (int x = 1; x < w - 1; ++x) {
                const float* c = &plane[size_t(y) * w + x];
                values.push_back(std::abs(4 * c[0] - c[-1] - c[1] - c[-w] - c[w]));
            }
        const size_t from = static_cast<size_t>(0.9 * double(values.size()));
        std::nth_element(values.begin(), values.begin() + from, values.end());
        double sum = 0;
        for (size_t i = from; i < values.size(); ++i)
            sum += values[i];
        total += sum / double(values.size() - from);
        ++counted;
    }
    return counted ? total / counted : 0;
}

}  // namespace ql::ImageAnalyzer
