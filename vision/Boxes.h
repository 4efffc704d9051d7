// Box arithmetic shared by the face detectors, in pixels of the image they look at.
#pragma once

#include <algorithm>

#include <opencv2/core.hpp>

namespace ql::vision {

/// Intersection over union; 0 for two empty boxes.
inline float iou(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float inter = (a & b).area();
    const float uni = a.area() + b.area() - inter;
    return uni > 0 ? inter / uni : 0.0f;
}

/// The square `sides` times the box's larger side around its centre, within the image.
inline cv::Rect squareAround(const cv::Rect2f& box, float sides, const cv::Size& image) {
    const float size = sides * std::max(box.width, box.height);
    return cv::Rect(cv::Rect2f(box.x + (box.width - size) / 2, box.y + (box.height - size) / 2,
                               size, size)) &
           cv::Rect(cv::Point(0, 0), image);
}

}  // namespace ql::vision
