#include "SampledCurve.h"

#include <algorithm>
#include <cmath>

namespace ql {
namespace {

// Coincident x must not divide by zero; the floor keeps such a step finite and steep.
constexpr double kMinWidth = 1e-06;

}  // namespace

SampledCurve::SampledCurve(std::vector<CurvePoint> points) {
    std::erase_if(points,
                  [](const CurvePoint& p) { return !std::isfinite(p.x) || !std::isfinite(p.y); });
    // Stable, so that points sharing an x keep the order they were given in.
    std::stable_sort(points.begin(), points.end(),
                     [](const CurvePoint& a, const CurvePoint& b) { return a.x < b.x; });
    identity_ = points == ToneCurves::straight;

    const size_t n = points.size();
    if (n < 2) {
        for (int i = 0; i < kSize; ++i)
            table_[size_t(i)] = i / double(kSize - 1);
        return;
    }

    std::vector<double> s(n - 1), t(n);
    for (size_t i = 0; i + 1 < n; ++i)
        s[i] = (points[i + 1].y - points[i].y) / std::max(points[i + 1].x - points[i].x, kMinWidth);
    t[0] = s[0];
    t[n - 1] = s[n - 2];
    for (size_t i = 1; i + 1 < n; ++i)
        t[i] = s[i - 1] * s[i] <= 0 ? 0 : 0.5 * (s[i - 1] + s[i]);
    // A flat stretch stays flat: no overshoot into its neighbours.
    for (size_t i = 0; i + 1 < n; ++i)
        if (s[i] == 0) t[i] = t[i + 1] = 0;
    // Tangents inside the circle of radius 3 keep each piece monotone. In order, so a tangent
    // shared by two intervals may be reduced by both.
    for (size_t i = 0; i + 1 < n; ++i) {
        if (s[i] == 0) continue;
        const double a = t[i] / s[i], b = t[i + 1] / s[i];
        const double r2 = a * a + b * b;
        if (r2 > 9) {
            const double tau = 3 / std::sqrt(r2);
            t[i] = s[i] * (a * tau);
            t[i + 1] = s[i] * (b * tau);
        }
    }

    size_t k = 0;
    for (int i = 0; i < kSize; ++i) {
        const double x = i / double(kSize - 1);
        double y;
        if (x <= points[0].x) {
            y = points[0].y;
        } else if (x >= points[n - 1].x) {
            y = points[n - 1].y;
        } else {
            // x rises with i, so the interval only moves right; it ends as the last point at or
            // left of x, which has a point right of x after it.
            while (points[k + 1].x <= x)
                ++k;
            const double h = std::max(points[k + 1].x - points[k].x, kMinWidth);
            const double u = (x - points[k].x) / h, u2 = u * u, u3 = u2 * u;
            y = (2 * u3 - 3 * u2 + 1) * points[k].y + h * (u3 - 2 * u2 + u) * t[k] +
                (3 * u2 - 2 * u3) * points[k + 1].y + h * (u3 - u2) * t[k + 1];
        }
        table_[size_t(i)] = std::clamp(y, 0.0, 1.0);
    }
}

}  // namespace ql
