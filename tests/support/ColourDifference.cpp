#include "ColourDifference.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>

namespace ql::testing {
namespace {

double labCurve(double t) {
    constexpr double e = 216.0 / 24389, k = 24389.0 / 27;
    return t > e ? std::cbrt(t) : (k * t + 16) / 116;
}

double degrees(double radians) {
    const double d = radians * 180 / std::numbers::pi;
    return d < 0 ? d + 360 : d;
}

double radians(double degrees) {
    return degrees * std::numbers::pi / 180;
}

}  // namespace

Lab labFromLinearSrgb(double r, double g, double b) {
    r = std::clamp(r, 0.0, 1.0), g = std::clamp(g, 0.0, 1.0), b = std::clamp(b, 0.0, 1.0);
    const double x = 0.4124564 * r + 0.3575761 * g + 0.1804375 * b;
    const double y = 0.2126729 * r + 0.7151522 * g + 0.0721750 * b;
    const double z = 0.0193339 * r + 0.1191920 * g + 0.9503041 * b;
    const double fx = labCurve(x / 0.95047), fy = labCurve(y), fz = labCurve(z / 1.08883);
    return {116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)};
}

double deltaE2000(const Lab& p, const Lab& q) {
    const double c1 = std::hypot(p.a, p.b), c2 = std::hypot(q.a, q.b);
    const double cMean7 = std::pow((c1 + c2) / 2, 7);
    const double g = 0.5 * (1 - std::sqrt(cMean7 / (cMean7 + std::pow(25.0, 7))));
    const double a1 = (1 + g) * p.a, a2 = (1 + g) * q.a;
    const double cp1 = std::hypot(a1, p.b), cp2 = std::hypot(a2, q.b);
    const double h1 = cp1 == 0 ? 0 : degrees(std::atan2(p.b, a1));
    const double h2 = cp2 == 0 ? 0 : degrees(std::atan2(q.b, a2));

    const double dL = q.L - p.L, dC = cp2 - cp1;
    double dh = 0;
    if (cp1 * cp2 != 0) {
        dh = h2 - h1;
        if (dh > 180) dh -= 360;
        if (dh < -180) dh += 360;
    }
    const double dH = 2 * std::sqrt(cp1 * cp2) * std::sin(radians(dh / 2));

    const double lMean = (p.L + q.L) / 2, cMean = (cp1 + cp2) / 2;
    double hMean = h1 + h2;
    if (cp1 * cp2 != 0) {
        if (std::abs(h1 - h2) <= 180)
            hMean /= 2;
        else
            hMean = hMean < 360 ? (hMean + 360) / 2 : (hMean - 360) / 2;
    }
    const double t = 1 - 0.17 * std::cos(radians(hMean - 30)) +
                     0.24 * std::cos(radians(2 * hMean)) + 0.32 * std::cos(radians(3 * hMean + 6)) -
                     0.20 * std::cos(radians(4 * hMean - 63));
    const double dTheta = 30 * std::exp(-std::pow((hMean - 275) / 25, 2));
    const double cMeanP7 = std::pow(cMean, 7);
    const double rc = 2 * std::sqrt(cMeanP7 / (cMeanP7 + std::pow(25.0, 7)));
    const double l50 = (lMean - 50) * (lMean - 50);
    const double sl = 1 + 0.015 * l50 / std::sqrt(20 + l50);
    const double sc = 1 + 0.045 * cMean, sh = 1 + 0.015 * cMean * t;
    const double rt = -std::sin(radians(2 * dTheta)) * rc;
    const double x = dL / sl, y = dC / sc, z = dH / sh;
    return std::sqrt(x * x + y * y + z * z + rt * y * z);
}

DeltaEStats compare(const img::Image& a, const img::Image& b) {
    if (a.width() != b.width() || a.height() != b.height() || a.empty())
        throw std::invalid_argument("pictures of different sizes");
    std::vector<double> d;
    d.reserve(a.pixelCount());
    for (int y = 0; y < a.height(); ++y)
        for (int x = 0; x < a.width(); ++x) {
            const img::Pixel p = a.at(x, y), q = b.at(x, y);
            d.push_back(
                deltaE2000(labFromLinearSrgb(p.r, p.g, p.b), labFromLinearSrgb(q.r, q.g, q.b)));
        }
    DeltaEStats s;
    for (double v : d)
        s.mean += v;
    s.mean /= double(d.size());
    s.max = *std::max_element(d.begin(), d.end());
    const size_t k = std::min(d.size() - 1, size_t(0.99 * double(d.size())));
    std::nth_element(d.begin(), d.begin() + std::ptrdiff_t(k), d.end());
    s.p99 = d[k];
    return s;
}

}  // namespace ql::testing
