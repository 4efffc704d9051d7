// dlib's HOG frontal face detector, for the face finder: over a whole frame, and over an enlarged
// crop around a face of known size.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

namespace ql::vision::hog {

struct Found {
    cv::Rect2f box;  // pixels of the image given
    double score;    // dlib's: 0 at its own threshold, about 2 for a clear face
};

/// Faces in the 8-bit grey image, looked for on a copy whose long edge is at most `maxEdge`: the
/// detector's time grows with the pixels, and it sees no face under 80 px anyway.
std::vector<Found> inFrame(const cv::Mat& gray, int maxEdge);

/// Faces in the square three times `box`'s size around it, the crop scaled so that a face of the
/// box's size is about 100 px wide.
std::vector<Found> around(const cv::Mat& gray, const cv::Rect2f& box);

}  // namespace ql::vision::hog
