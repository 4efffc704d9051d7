#include "Geometry.h"

#include <algorithm>
#include <cmath>

#include "imaging/CropRegion.h"
#include "imaging/Orientation.h"

namespace ql::Geometry {
namespace {

using img::Point;
using Quad = std::array<Point, 4>;

/// The warp sliders as the stage uses them: not finite counts as 0, keystones within ±100 so the
/// box can never grow without bound.
struct Warp {
    double vertical = 0, horizontal = 0, rotation = 0;
    bool any() const { return vertical != 0 || horizontal != 0 || rotation != 0; }
};

double finiteOr0(double v) {
    return std::isfinite(v) ? v : 0;
}

Warp warpOf(const Adjustments& a) {
    return {std::clamp(finiteOr0(a.perspectiveVertical), -100.0, 100.0),
            std::clamp(finiteOr0(a.perspectiveHorizontal), -100.0, 100.0), finiteOr0(a.rotation)};
}

int turnsOf(const Adjustments& a) {
    return ((a.quarterTurns % 4) + 4) % 4;
}

/// The orientation code of Orientation.h for clockwise turns followed by a mirror.
int orientationOf(int turns, bool mirror) {
    static constexpr int plain[4] = {1, 6, 3, 8}, mirrored[4] = {2, 5, 4, 7};
    return mirror ? mirrored[turns] : plain[turns];
}

/// A crop the stage can use: present, finite and with an area.
bool usable(const std::optional<CropRect>& c) {
    return c && std::isfinite(c->x) && std::isfinite(c->y) && std::isfinite(c->w) &&
           std::isfinite(c->h) && c->isValid();
}

struct Extent {
    double minX, minY, maxX, maxY;
    double width() const { return maxX - minX; }
    double height() const { return maxY - minY; }
};

Extent bounds(const Quad& q) {
    Extent e{q[0].x, q[0].y, q[0].x, q[0].y};
    for (const Point& p : q) {
        e.minX = std::min(e.minX, p.x), e.maxX = std::max(e.maxX, p.x);
        e.minY = std::min(e.minY, p.y), e.maxY = std::max(e.maxY, p.y);
    }
    return e;
}

/// Rounding noise (0.29 × 100 = 28.999…) must not cost a whole pixel row.
double snapped(double v) {
    const double r = std::round(v);
    return std::abs(v - r) <= 1e-9 * std::max(1.0, std::abs(v)) ? r : v;
}

/// Beyond any picture, inside int.
constexpr double kFar = 1e9;

/// The smallest pixel rectangle that holds [x0, x1] × [y0, y1].
img::PixelRect integral(double x0, double y0, double x1, double y1) {
    const auto lo = [](double v) { return int(std::clamp(std::floor(snapped(v)), -kFar, kFar)); };
    const auto hi = [](double v) { return int(std::clamp(std::ceil(snapped(v)), -kFar, kFar)); };
    if (!(x0 <= x1 && y0 <= y1)) return {};  // also NaN
    return {lo(x0), lo(y0), hi(x1) - lo(x0), hi(y1) - lo(y0)};
}

img::PixelRect intersect(const img::PixelRect& a, const img::PixelRect& b) {
    const long x0 = std::max(a.x, b.x), y0 = std::max(a.y, b.y);
    const long x1 = std::min(long(a.x) + a.width, long(b.x) + b.width);
    const long y1 = std::min(long(a.y) + a.height, long(b.y) + b.height);
    if (x1 <= x0 || y1 <= y0) return {};
    return {int(x0), int(y0), int(x1 - x0), int(y1 - y0)};
}

GeometryLayout layoutOf(const Adjustments& a, const Quad& q, double w, double h) {
    GeometryLayout l;
    const Extent e = bounds(q);
    if (e.width() > 0 && e.height() > 0) {
        for (size_t i = 0; i < 4; ++i)
            l.quad[i] = {(q[i].x - e.minX) / e.width(), (q[i].y - e.minY) / e.height()};
        l.boxAspect = e.width() / e.height();
        l.photoAspect = w / h;
    }
    l.crop = usable(a.crop) ? *a.crop : defaultCrop(a, l);
    return l;
}

double cross(Point o, Point a, Point b) {
    return (a.x - o.x) * (b.y - o.y) - (a.y - o.y) * (b.x - o.x);
}

CropRect scaledAbout(const CropRect& r, double cx, double cy, double s) {
    return {cx - r.w * s / 2, cy - r.h * s / 2, r.w * s, r.h * s};
}

/// The largest copy of `r` scaled about (cx, cy) that lies in the quad, when it keeps more than
/// 2 % of the size.
std::optional<CropRect> shrunkInto(const CropRect& r, double cx, double cy, const Quad& quad) {
    if (inside(quad, scaledAbout(r, cx, cy, 1))) return scaledAbout(r, cx, cy, 1);
    double lo = 0, hi = 1;
    for (int i = 0; i < 30; ++i) {
        const double mid = (lo + hi) / 2;
        (inside(quad, scaledAbout(r, cx, cy, mid)) ? lo : hi) = mid;
    }
    if (lo > 0.02) return scaledAbout(r, cx, cy, lo);
    return std::nullopt;
}

}  // namespace

std::array<Point, 4> corners(const Adjustments& adjustments, double w, double h) {
    const Warp warp = warpOf(adjustments);
    // Worked out with y up, as the keystone reads naturally; flipped to y down at the end.
    Quad q = {Point{0, h}, {w, h}, {w, 0}, {0, 0}};
    const double dv = w * (warp.vertical / 100 * 0.2);
    if (dv > 0) q[0].x = -dv, q[1].x = w + dv;  // wider top
    if (dv < 0) q[3].x = dv, q[2].x = w - dv;   // wider bottom
    const double dh = h * (warp.horizontal / 100 * 0.2);
    if (dh > 0) q[1].y = h + dh, q[2].y = -dh;  // taller right
    if (dh < 0) q[0].y = h - dh, q[3].y = dh;   // taller left
    if (warp.rotation != 0) {
        // Minus the angle with y up: positive slider values turn the picture clockwise.
        const double t = -warp.rotation * M_PI / 180, c = std::cos(t), s = std::sin(t);
        const double cx = w / 2, cy = h / 2;
        for (Point& p : q) {
            const double x = p.x - cx, y = p.y - cy;
            p = {cx + x * c - y * s, cy + x * s + y * c};
        }
    }
    for (Point& p : q)
        p.y = h - p.y;
    return q;
}

GeometryLayout layout(const Adjustments& adjustments, double photoW, double photoH) {
    if (!(photoW > 0 && photoH > 0 && std::isfinite(photoW) && std::isfinite(photoH))) {
        GeometryLayout l;
        l.crop = usable(adjustments.crop) ? *adjustments.crop : defaultCrop(adjustments, l);
        return l;
    }
    if (turnsOf(adjustments) % 2) std::swap(photoW, photoH);
    return layoutOf(adjustments, corners(adjustments, photoW, photoH), photoW, photoH);
}

CropRect defaultCrop(const Adjustments& adjustments, const GeometryLayout& layout) {
    const auto fixed = ratio(adjustments.cropAspect, layout.photoAspect);
    const double want =
        adjustments.cropAspect == CropAspect::original || !fixed ? layout.photoAspect : *fixed;
    const double r = want / layout.boxAspect;
    if (!(r > 0) || !std::isfinite(r)) return {};
    if (r < 1) return {(1 - r) / 2, 0, r, 1};
    return {0, (1 - 1 / r) / 2, 1, 1 / r};
}

bool contains(const std::array<Point, 4>& quad, Point p) {
    constexpr double kEdge = 1e-9;  // points on an edge count, despite rounding
    bool left = true, right = true;
    for (size_t i = 0; i < 4; ++i) {
        const double c = cross(quad[i], quad[(i + 1) % 4], p);
        left = left && c >= -kEdge;
        right = right && c <= kEdge;
    }
    return left || right;
}

bool inside(const std::array<Point, 4>& quad, const CropRect& r) {
    // A convex quad holds the rectangle when it holds its four corners.
    return contains(quad, {r.x, r.y}) && contains(quad, {r.x + r.w, r.y}) &&
           contains(quad, {r.x + r.w, r.y + r.h}) && contains(quad, {r.x, r.y + r.h});
}

CropRect fit(CropRect rect, const std::array<Point, 4>& quad) {
    CropRect r = rect;
    if (r.x < 0 || r.y < 0 || r.x + r.w > 1 || r.y + r.h > 1) {  // untouched when within
        const double x0 = std::max(r.x, 0.0), y0 = std::max(r.y, 0.0);
        const double x1 = std::min(r.x + r.w, 1.0), y1 = std::min(r.y + r.h, 1.0);
        r = {x0, y0, x1 - x0, y1 - y0};
    }
    if (!(r.w >= 0.01 && r.h >= 0.01)) r = {};  // also NaN
    if (inside(quad, r)) return r;
    const double cx = r.x + r.w / 2, cy = r.y + r.h / 2;
    if (contains(quad, {cx, cy}))
        if (const auto s = shrunkInto(r, cx, cy, quad)) return *s;
    if (contains(quad, {0.5, 0.5}))
        if (const auto s = shrunkInto(r, 0.5, 0.5, quad)) return *s;
    return r;
}

img::Image orient(const img::Image& image, const Adjustments& adjustments,
                  const img::Execution& exec) {
    return img::orient(image, orientationOf(turnsOf(adjustments), adjustments.flipHorizontal),
                       exec);
}

img::Image apply(const Adjustments& adjustments, const img::Image& image, bool cropping,
                 const img::Execution& exec) {
    if (image.empty()) return image;
    const Adjustments& a = adjustments;
    const Warp warp = warpOf(a);
    const int turns = turnsOf(a);
    if (turns == 0 && !a.flipHorizontal && !warp.any() && !a.crop &&
        (!cropping || a.cropAspect == CropAspect::original))
        return image;

    const bool swap = turns % 2;
    const int w = swap ? image.height() : image.width();
    const int h = swap ? image.width() : image.height();
    const Quad q = corners(a, w, h);
    const Extent e = bounds(q);
    const img::PixelRect box = integral(e.minX, e.minY, e.maxX, e.maxY);
    img::PixelRect cut = box;
    if (cropping) {
        // Fractions of the exact box, so that the cut scales with the picture.
        const CropRect c = layoutOf(a, q, w, h).crop;
        const img::PixelRect want =
            integral(e.minX + c.x * e.width(), e.minY + c.y * e.height(),
                     e.minX + (c.x + c.w) * e.width(), e.minY + (c.y + c.h) * e.height());
        const img::PixelRect kept = intersect(want, box);
        if (kept.width > 0 && kept.height > 0) cut = kept;
    }

    const int orientation = orientationOf(turns, a.flipHorizontal);
    if (!warp.any()) {
        // Cut and turn in one pass: only the kept pixels move. Opposite corners of the cut map to
        // opposite corners of the source rectangle.
        const img::SourcePoint p0 =
            img::orientedSource(orientation, image.width(), image.height(), cut.x, cut.y);
        const img::SourcePoint p1 =
            img::orientedSource(orientation, image.width(), image.height(), cut.x + cut.width - 1,
                                cut.y + cut.height - 1);
        const img::PixelRect from{std::min(p0.x, p1.x), std::min(p0.y, p1.y),
                                  std::abs(p1.x - p0.x) + 1, std::abs(p1.y - p0.y) + 1};
        return img::orient(image, orientation, from, exec);
    }

    // Quarter turns only permute the corners the source's corners go to, so they ride along in
    // the one resampling. A mirror reverses the quad's winding, which the transform refuses, so
    // the mirrored picture is made first.
    const img::Image source = a.flipHorizontal ? img::orient(image, orientation, exec) : image;
    if (source.empty()) return source;
    const int shift = a.flipHorizontal ? 0 : turns;
    Quad to;
    for (size_t k = 0; k < 4; ++k) {
        const Point p = q[(k + size_t(shift)) % 4];
        to[k] = {p.x - cut.x, p.y - cut.y};
    }
    img::PerspectiveParams p{
        to[0], to[1], to[2], to[3], cut.width, cut.height, img::EdgeMode::clamp};
    const img::Image out = img::perspectiveTransform(source, p, exec);
    const bool refused = out.sharesPixelsWith(source) &&
                         (out.width() != cut.width || out.height() != cut.height || shift != 0);
    if (!refused) return out;
    // No usable quad (cannot happen within the slider ranges): keep the turns and the crop.
    Adjustments flat = a;
    flat.perspectiveVertical = flat.perspectiveHorizontal = flat.rotation = 0;
    return apply(flat, image, cropping, exec);
}

}  // namespace ql::Geometry
