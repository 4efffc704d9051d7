#include "FaceMaskShapes.h"

#include <QPainterPath>
#include <QRadialGradient>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

namespace ql::FaceParts::detail {
namespace {

using vision::FaceShape;
using vision::Point;
using vision::Rect;
using Points = std::vector<Point>;

const QColor white(255, 255, 255), black(0, 0, 0);

QPointF qt(Point p) {
    return {p.x, p.y};
}

QRectF bounds(const Points& pts) {
    if (pts.empty()) return {};
    double x0 = pts[0].x, x1 = x0, y0 = pts[0].y, y1 = y0;
    for (const Point& q : pts) {
        x0 = std::min(x0, q.x), x1 = std::max(x1, q.x);
        y0 = std::min(y0, q.y), y1 = std::max(y1, q.y);
    }
    return QRectF(QPointF(x0, y0), QPointF(x1, y1));
}

// The region's outline scaled by (kx, ky) about the centroid of its points.
QPolygonF polygonAt(const Points& pts, double kx, double ky) {
    const QPointF c = qt(vision::centroid(pts));
    QPolygonF poly;
    poly.reserve(qsizetype(pts.size()));
    for (const Point& q : pts)
        poly << QPointF(c.x() + (q.x - c.x()) * kx, c.y() + (q.y - c.y()) * ky);
    return poly;
}

void fill(QPainter& p, const QPainterPath& path, const QColor& colour) {
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    p.drawPath(path);
}

// A region too small to enclose anything (fewer than three points) paints nothing.
void fillRegion(QPainter& p, const Points& pts, double kx, double ky, const QColor& colour) {
    if (pts.size() < 3) return;
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    p.drawPolygon(polygonAt(pts, kx, ky), Qt::WindingFill);
}

void fillRegion(QPainter& p, const Points& pts, double k, const QColor& colour) {
    fillRegion(p, pts, k, k, colour);
}

QPainterPath regionPath(const Points& pts) {
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    if (pts.size() >= 3) path.addPolygon(polygonAt(pts, 1, 1));
    path.closeSubpath();
    return path;
}

// The face ellipse: 0.8 of the box wide and 0.92 of it high, centred 0.06 of the box's height above
// the box's middle. Face boxes run from the brows to the chin, so this stays inside the cheeks and
// reaches the brows while the narrow chin is left to the jaw contour.
QRectF faceEllipse(const Rect& box) {
    const double w = 0.8 * box.width, h = 0.92 * box.height;
    return QRectF(box.midX() - w / 2, box.midY() - 0.06 * box.height - h / 2, w, h);
}

void strokeLine(QPainter& p, const QPolygonF& line, double width, bool closed) {
    p.setPen(QPen(white, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.setBrush(closed ? QBrush(white) : QBrush(Qt::NoBrush));
    if (closed)
        p.drawPolygon(line, Qt::WindingFill);
    else
        p.drawPolyline(line);
}

// The upper rim of an eye, corner to corner: the corners (the outermost points) and every point
// above the line that joins them, in order of x.
QPolygonF upperRim(const Points& eye) {
    const auto [lo, hi] = std::minmax_element(
        eye.begin(), eye.end(), [](const Point& a, const Point& b) { return a.x < b.x; });
    const Point a = *lo, b = *hi;
    const double dx = b.x - a.x;
    Points rim;
    for (const Point& q : eye) {
        const double lineY = dx > 0 ? a.y + (b.y - a.y) * (q.x - a.x) / dx : (a.y + b.y) / 2;
        if (&q == &*lo || &q == &*hi || q.y < lineY) rim.push_back(q);
    }
    std::stable_sort(rim.begin(), rim.end(),
                     [](const Point& u, const Point& v) { return u.x < v.x; });
    QPolygonF line;
    for (const Point& q : rim)
        line << QPointF(q.x, q.y);
    return line;
}

std::optional<QPointF> eyeCentre(const Points& eye, const std::optional<Point>& pupil) {
    if (pupil) return qt(*pupil);
    if (!eye.empty()) return qt(vision::centroid(eye));
    return std::nullopt;
}

// Where the eyes are and how the face leans: the midpoint of the eye centres and the angle, in
// degrees, of the line from the eye on the image left to the one on the image right. Without both
// eyes the face is taken as upright with its eye line a quarter down the box.
struct EyeLine {
    QPointF middle;
    double degrees = 0;
};

EyeLine eyeLine(const FaceShape& f) {
    const auto subjectRight = eyeCentre(f.rightEye, f.rightPupil);
    const auto subjectLeft = eyeCentre(f.leftEye, f.leftPupil);
    if (subjectRight && subjectLeft) {
        const QPointF d = *subjectLeft - *subjectRight;
        return {(*subjectLeft + *subjectRight) / 2,
                std::atan2(d.y(), d.x()) * 180 / std::numbers::pi};
    }
    return {QPointF(f.box.midX(), f.box.minY() + 0.25 * f.box.height), 0};
}

// The points in the face's own frame: origin at the eye line's middle, x along it.
QPointF toFaceFrame(const EyeLine& line, const Point& q) {
    QTransform t;
    t.rotate(-line.degrees);
    return t.map(QPointF(q.x, q.y) - line.middle);
}

void paintEyes(QPainter& p, const FaceShape& f) {
    fillRegion(p, f.leftEye, 1.5, white);
    fillRegion(p, f.rightEye, 1.5, white);
}

// A crescent under each eye: an ellipse reaching 0.6 eye heights below the lower lid, with the eye
// and its lids (the eye at 1.8) taken out again.
void paintUnderEyes(QPainter& p, const FaceShape& f) {
    for (const Points* eye : {&f.leftEye, &f.rightEye}) {
        if (eye->size() < 3) continue;
        const QRectF b = bounds(*eye);
        const double w = b.width(), h = b.height();
        p.setPen(Qt::NoPen);
        p.setBrush(white);
        p.drawEllipse(
            QRectF(b.center().x() - 0.6 * w, b.bottom() + 0.6 * h - 2 * h, 1.2 * w, 2 * h));
        fillRegion(p, *eye, 1.8, black);
    }
}

void paintClearSkin(QPainter& p, const FaceShape& f) {
    if (f.box.empty()) return;
    p.setPen(Qt::NoPen);
    p.setBrush(white);
    p.drawEllipse(faceEllipse(f.box));
    fillRegion(p, f.leftEye, 2.4, black);
    fillRegion(p, f.rightEye, 2.4, black);
    // Brows are long and thin: a wider margin across them than along them.
    fillRegion(p, f.leftBrow, 1.25, 1.9, black);
    fillRegion(p, f.rightBrow, 1.25, 1.9, black);
    fillRegion(p, f.outerLips, 1.15, black);
}

void paintFaceSkin(QPainter& p, const FaceShape& f) {
    if (!f.box.empty()) {
        p.setPen(Qt::NoPen);
        p.setBrush(white);
        p.drawEllipse(faceEllipse(f.box));
    }
    // The jaw line, closed across the temples, brings the chin and jaw corners in.
    fillRegion(p, f.contour, 1, white);
    for (const Points* cut : {&f.leftEye, &f.rightEye})
        fillRegion(p, *cut, 1.5, black);
    for (const Points* cut : {&f.leftBrow, &f.rightBrow, &f.outerLips})
        fillRegion(p, *cut, 1.12, black);
}

// The iris disc inside the open eye: the measured iris radius when the landmarks came with one,
// else 0.95 of the eye's height (the lids then cut it).
void paintIris(QPainter& p, const FaceShape& f) {
    const struct {
        const Points& eye;
        const std::optional<Point>& pupil;
        double radius;
    } eyes[] = {{f.leftEye, f.leftPupil, f.leftIrisRadius},
                {f.rightEye, f.rightPupil, f.rightIrisRadius}};
    for (const auto& e : eyes) {
        if (!e.pupil || e.eye.size() < 3) continue;
        const double r = e.radius > 0 ? e.radius : 0.95 * bounds(e.eye).height();
        QPainterPath disc;
        disc.addEllipse(QPointF(e.pupil->x, e.pupil->y), r, r);
        fill(p, disc.intersected(regionPath(e.eye)), white);
    }
}

// A band over both eyes and brows, turned with the face, for frames and lenses. Measured in d, the
// distance from the eye line up to the brows' middle: it runs from 1.15 d above the eye line (just
// over the brows) to 0.85 d below it (the lower rims of lenses), its corners rounded with 0.8 of
// its half height, and it is 1.35 times as wide as the eyes and brows together.
void paintGlasses(QPainter& p, const FaceShape& f) {
    if (f.leftEye.empty() && f.rightEye.empty()) return;
    const EyeLine line = eyeLine(f);
    Points eyes, brows;
    for (const Points* eye : {&f.leftEye, &f.rightEye})
        for (const Point& q : *eye) {
            const QPointF l = toFaceFrame(line, q);
            eyes.push_back({l.x(), l.y()});
        }
    for (const Points* brow : {&f.leftBrow, &f.rightBrow})
        for (const Point& q : *brow) {
            const QPointF l = toFaceFrame(line, q);
            brows.push_back({l.x(), l.y()});
        }
    const QRectF e = bounds(eyes);
    const double eyeMid = e.center().y();
    double d = brows.empty() ? 0 : eyeMid - vision::centroid(brows).y;
    if (!(d > 0)) d = f.box.empty() ? 2 * e.height() : 0.12 * f.box.height;
    Points all = eyes;
    all.insert(all.end(), brows.begin(), brows.end());
    const QRectF u = bounds(all);
    const double width = 1.35 * u.width(), top = eyeMid - 1.15 * d, bottom = eyeMid + 0.85 * d;
    const double corner = 0.8 * (bottom - top) / 2;
    p.save();
    p.translate(line.middle);
    p.rotate(line.degrees);
    p.setPen(Qt::NoPen);
    p.setBrush(white);
    p.drawRoundedRect(QRectF(u.center().x() - width / 2, top, width, bottom - top), corner, corner);
    p.restore();
}

void paintLips(QPainter& p, const FaceShape& f) {
    fillRegion(p, f.outerLips, 1.02, white);
    fillRegion(p, f.innerLips, 1.05, black);
}

// Brow outlines come round the brow (upper edge, then lower edge back), so the outline is filled as
// well as stroked; the stroke keeps thin brows from vanishing.
void paintBrows(QPainter& p, const FaceShape& f, double unit) {
    for (const Points* brow : {&f.leftBrow, &f.rightBrow}) {
        if (brow->size() < 2) continue;
        const double width = std::max(1.5, 0.3 * bounds(*brow).height() * unit) / unit;
        strokeLine(p, polygonAt(*brow, 1, 1), width, brow->size() >= 3);
    }
}

void paintLashes(QPainter& p, const FaceShape& f, double unit) {
    for (const Points* eye : {&f.leftEye, &f.rightEye}) {
        if (eye->size() < 3) continue;
        const double width = std::max(1.0, 0.08 * bounds(*eye).width() * unit) / unit;
        strokeLine(p, upperRim(*eye), width, false);
    }
}

void paintSclera(QPainter& p, const FaceShape& f) {
    const struct {
        const Points& eye;
        const std::optional<Point>& pupil;
    } eyes[] = {{f.leftEye, f.leftPupil}, {f.rightEye, f.rightPupil}};
    for (const auto& e : eyes) {
        if (e.eye.size() < 3) continue;
        fillRegion(p, e.eye, 0.9, white);
        if (!e.pupil) continue;
        const double r = 0.27 * bounds(e.eye).width();
        p.setBrush(black);
        p.drawEllipse(QPointF(e.pupil->x, e.pupil->y), r, r);
    }
}

Point clamped(Point q, double limit) {
    return {std::clamp(q.x, -limit, limit), std::clamp(q.y, -limit, limit)};
}

void sanitise(Points& pts, double limit) {
    for (const Point& q : pts)
        if (!std::isfinite(q.x) || !std::isfinite(q.y)) {
            pts.clear();
            return;
        }
    for (Point& q : pts)
        q = clamped(q, limit);
}

void sanitise(std::optional<Point>& pupil, double limit) {
    if (!pupil) return;
    if (!std::isfinite(pupil->x) || !std::isfinite(pupil->y))
        pupil.reset();
    else
        *pupil = clamped(*pupil, limit);
}

double sanitisedRadius(double r, double limit) {
    return std::isfinite(r) && r > 0 ? std::min(r, limit) : 0;
}

}  // namespace

FaceShape sanitised(const FaceShape& face, double limit) {
    FaceShape f = face;
    Rect& b = f.box;
    if (!std::isfinite(b.x) || !std::isfinite(b.y) || !std::isfinite(b.width) ||
        !std::isfinite(b.height) || b.empty()) {
        b = {};
    } else {
        const Point a = clamped({b.x, b.y}, limit), z = clamped({b.maxX(), b.maxY()}, limit);
        b = {a.x, a.y, z.x - a.x, z.y - a.y};
    }
    for (Points* pts : {&f.leftEye, &f.rightEye, &f.leftBrow, &f.rightBrow, &f.outerLips,
                        &f.innerLips, &f.nose, &f.contour, &f.noseCrest})
        sanitise(*pts, limit);
    sanitise(f.leftPupil, limit);
    sanitise(f.rightPupil, limit);
    f.leftIrisRadius = sanitisedRadius(f.leftIrisRadius, limit);
    f.rightIrisRadius = sanitisedRadius(f.rightIrisRadius, limit);
    return f;
}

void paintPart(QPainter& p, Part part, const FaceShape& f, double unit) {
    switch (part) {
        case Part::eyes:
            return paintEyes(p, f);
        case Part::underEyes:
            return paintUnderEyes(p, f);
        case Part::teeth:
            return fillRegion(p, f.innerLips, 0.95, white);
        case Part::clearSkin:
            return paintClearSkin(p, f);
        case Part::faceSkin:
            return paintFaceSkin(p, f);
        case Part::iris:
            return paintIris(p, f);
        case Part::glasses:
            return paintGlasses(p, f);
        case Part::lips:
            return paintLips(p, f);
        case Part::brows:
            return paintBrows(p, f, unit);
        case Part::lashes:
            return paintLashes(p, f, unit);
        case Part::sclera:
            return paintSclera(p, f);
    }
}

// Three ellipses in the box's measures: the wide zone, twice the box wide, from a quarter of the
// box below its top to 1.6 boxes above it; the core, 1.36 boxes wide and 0.95 high, ending a fifth
// of the box below its top so that it takes in the temples; the face itself, 0.76 wide, cut out of
// both from just above the brows down.
void paintHairZones(QPainter& p, const FaceShape& f) {
    const Rect& b = f.box;
    if (b.empty()) return;
    const double w = b.width, h = b.height;
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(0, 255, 0));
    p.drawEllipse(QRectF(b.midX() - w, b.minY() + 0.25 * h - 1.85 * h, 2 * w, 1.85 * h));
    p.setBrush(QColor(255, 255, 0));
    p.drawEllipse(QRectF(b.midX() - 0.68 * w, b.minY() + 0.2 * h - 0.95 * h, 1.36 * w, 0.95 * h));
    double browTop = b.minY();
    for (const Points* brow : {&f.leftBrow, &f.rightBrow})
        if (!brow->empty()) browTop = std::min(browTop, bounds(*brow).top());
    const double top = browTop - 0.05 * h;
    p.setBrush(black);
    p.drawEllipse(QRectF(b.minX() + 0.12 * w, top, 0.76 * w, b.maxY() + 0.1 * h - top));
}

// Contouring in the face's own frame (turned with the eye line, measured in box widths W):
//   forehead highlight    0.32 W above the eye line, 0.26 × 0.12 W;
//   nose ridge highlight  0.17 W below it, 0.05 W across, from 0.02 W to 0.32 W down;
//   chin highlight        0.1 W above the lowest jaw point, 0.1 × 0.06 W;
//   cheek shadows         0.3 W to each side and 0.3 W down, under the cheekbones, 0.13 × 0.07 W.
// Each is a radial gradient from its strength (about half) at the centre to nothing at its rim.
void paintSculpt(QPainter& p, const FaceShape& f) {
    if (f.box.empty()) return;
    const EyeLine line = eyeLine(f);
    const double W = f.box.width;
    double chin = toFaceFrame(line, {f.box.midX(), f.box.maxY()}).y() / W;
    if (!f.contour.empty()) {
        chin = -1e9;
        for (const Point& q : f.contour)
            chin = std::max(chin, toFaceFrame(line, q).y() / W);
    }
    p.setPen(Qt::NoPen);
    p.setCompositionMode(QPainter::CompositionMode_Plus);
    const auto blob = [&](double x, double y, double ax, double ay, double red, double green) {
        QRadialGradient g(QPointF(0, 0), 1);
        g.setColorAt(0, QColor::fromRgbF(float(red), float(green), 0));
        g.setColorAt(0.4, QColor::fromRgbF(float(0.75 * red), float(0.75 * green), 0));
        g.setColorAt(1, black);
        p.save();
        p.translate(line.middle);
        p.rotate(line.degrees);
        p.translate(x * W, y * W);
        p.scale(ax * W, ay * W);
        p.setBrush(g);
        p.drawEllipse(QPointF(0, 0), 1, 1);
        p.restore();
    };
    blob(0, -0.32, 0.26, 0.12, 0.45, 0);
    blob(0, 0.17, 0.05, 0.15, 0.5, 0);
    blob(0, chin - 0.1, 0.1, 0.06, 0.45, 0);
    blob(-0.3, 0.3, 0.13, 0.07, 0, 0.5);
    blob(0.3, 0.3, 0.13, 0.07, 0, 0.5);
    p.setCompositionMode(QPainter::CompositionMode_SourceOver);
}

void paintSkinDisc(QPainter& p, const Rect& box) {
    if (box.empty()) return;
    const double r = std::max(box.width, box.height);
    const QPointF c(box.midX(), box.midY() + 0.05 * box.height);
    QRadialGradient g(c, 0.85 * r);
    g.setColorAt(0, white);
    g.setColorAt(0.55 / 0.85, white);
    g.setColorAt(1, black);
    p.setPen(Qt::NoPen);
    p.setBrush(g);
    p.setCompositionMode(QPainter::CompositionMode_Lighten);
    p.drawEllipse(c, 0.85 * r, 0.85 * r);
    p.setCompositionMode(QPainter::CompositionMode_SourceOver);
}

}  // namespace ql::FaceParts::detail
