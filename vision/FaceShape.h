// Geometry of faces in image space: pixels, origin at the top left, y down.
#pragma once

#include <optional>
#include <vector>

namespace ql::vision {

struct Point {
    double x = 0, y = 0;
    bool operator==(const Point&) const = default;
};

struct Rect {
    double x = 0, y = 0, width = 0, height = 0;
    double minX() const { return x; }
    double minY() const { return y; }
    double maxX() const { return x + width; }
    double maxY() const { return y + height; }
    double midX() const { return x + width / 2; }
    double midY() const { return y + height / 2; }
    bool empty() const { return !(width > 0) || !(height > 0); }
    bool contains(Point p) const { return p.x >= x && p.x <= maxX() && p.y >= y && p.y <= maxY(); }
    bool operator==(const Rect&) const = default;
};

/// The mean of the points; the origin for none.
inline Point centroid(const std::vector<Point>& points) {
    Point c;
    if (points.empty()) return c;
    for (const Point& p : points)
        c.x += p.x, c.y += p.y;
    return {c.x / double(points.size()), c.y / double(points.size())};
}

/// One face's landmark regions. Sides are the subject's own: `leftEye` is the subject's left eye,
/// on the image right for a face that looks at the camera. A region that was not found is empty.
struct FaceShape {
    Rect box;
    std::vector<Point> leftEye, rightEye, leftBrow, rightBrow, outerLips, innerLips, nose;
    std::optional<Point> leftPupil, rightPupil;
    std::vector<Point> contour, noseCrest;
    /// Pupil radii in pixels, when the iris was measured (0 otherwise): the iris mask needs them.
    double leftIrisRadius = 0, rightIrisRadius = 0;
};

}  // namespace ql::vision
