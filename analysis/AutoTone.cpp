#include "AutoTone.h"

#include <algorithm>
#include <cmath>

#include "imaging/SrgbTransfer.h"

namespace ql {
namespace {

/// Fraction of the sample that clips after a lift of `ev`: one binary search.
double blown(const std::vector<float>& maxLinear, double ev) {
    if (maxLinear.empty()) return 0;
    const double limit = 0.985 / std::exp2(ev);
    const auto first = std::lower_bound(maxLinear.begin(), maxLinear.end(), limit,
                                        [](float v, double l) { return double(v) < l; });
    return double(maxLinear.end() - first) / double(maxLinear.size());
}

double encoded(double linear) {
    return linear > 0 ? img::srgbEncode(float(linear)) : 0;
}
double decoded(double value) {
    return img::srgbDecode(float(value));
}
double steps20(double v) {
    return std::round(v * 20) / 20;
}

}  // namespace

AutoTone AutoTone::suggest(const ImageStats& stats, const std::vector<float>& maxLinear) {
    AutoTone t;
    std::vector<double> faceLumas;
    for (const FaceInfo& f : stats.faces)
        if (f.rect.width > 0.015) faceLumas.push_back(f.luma);
    std::sort(faceLumas.begin(), faceLumas.end());
    const bool faces = !faceLumas.empty();

    // 1. The raw lift: faces toward 0.48 decoded, else the brightest tones toward 0.9.
    double ev = 0;
    if (faces) {
        const double median = faceLumas[faceLumas.size() / 2];
        if (median < 0.42) {
            const double lin = median <= 0.01 ? 0.01 / 12.92 : decoded(median);
            ev = std::min(0.6 * std::log2(0.19599417930148813 / std::max(lin, 0.0001)), 0.5);
        }
    } else if (stats.p99 < 0.8) {
        const double lin = stats.p99 <= 0.02 ? 0.02 / 12.92 : decoded(stats.p99);
        ev = std::min(0.6 * std::log2(0.7874122893956174 / std::max(lin, 0.0001)), 0.6);
    } else if (stats.p50 < 0.2 && stats.clippedHighlights < 0.005) {
        ev = 0.25;
    }

    // 2. Never lift more into white than was already there.
    if (ev > 0) {
        const double allowed = std::max(1.3 * blown(maxLinear, 0), 0.01);
        if (blown(maxLinear, ev) > allowed) {
            double lo = 0, hi = ev;
            for (int i = 0; i < 20; ++i) {
                const double mid = (lo + hi) / 2;
                (blown(maxLinear, mid) > allowed ? hi : lo) = mid;
            }
            ev = lo;
        }
    }

    if (ev == 0 && stats.clippedHighlights > 0.05) {
        ev = -0.2;
    } else if (faces && ev > 0.1 && stats.peopleCoverage > 0.02) {
        // The person mask carries the lift; the frame takes a third of it.
        t.peopleExposure = steps20(std::min(1.2 * ev, 0.8));
        ev *= 0.35;
    }
    t.exposure = steps20(ev) + 0.0;

    const auto after = [&](double v) {
        return std::min(encoded(decoded(v) * std::exp2(t.exposure)), 1.0);
    };
    const double a = after(stats.p05), b = after(stats.p10), c = after(stats.p90);

    const double h = blown(maxLinear, t.exposure);
    if (h > 0.005 || stats.clippedHighlights > 0.005)
        t.highlights = -std::min(800 * std::max(h, stats.clippedHighlights) + 10, 40.0);
    else if (t.exposure > 0.15)
        t.highlights = -10;
    if (b < 0.08) t.shadows = std::min((0.12 - b) * 300, 25.0);
    if (stats.clippedShadows > 0.02)
        t.blacks = std::min(400 * stats.clippedShadows, 15.0);
    else if (a > 0.08)
        t.blacks = -std::min((a - 0.05) * 200, 15.0);
    const double span = c - b;
    if (span < 0.4) t.contrast = std::min((0.5 - span) * 60, 12.0);
    if (stats.meanSaturation < 0.13 && !(stats.p50 > 0.55)) t.vibrance = 10;
    if (a > 0.15 && span < 0.35) t.dehaze = 8;

    for (double* v : {&t.contrast, &t.highlights, &t.shadows, &t.whites, &t.blacks, &t.vibrance,
                      &t.saturation, &t.clarity, &t.dehaze})
        *v = std::round(*v) + 0.0;  // no negative zero in the output
    return t;
}

namespace WhiteBalance {
std::pair<double, double> neutralize(double r, double g, double b) {
    r = std::max(r, 1e-5), g = std::max(g, 1e-5), b = std::max(b, 1e-5);
    if (!std::isfinite(r) || !std::isfinite(g) || !std::isfinite(b)) return {0, 0};
    const double temperature = (std::log(b) - std::log(r)) / 0.01;
    const double tint = (2 * std::log(g) - std::log(r) - std::log(b)) / 0.016;
    return {std::clamp(temperature, -100.0, 100.0), std::clamp(tint, -100.0, 100.0)};
}
}  // namespace WhiteBalance

}  // namespace ql
