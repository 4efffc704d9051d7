// OpenCV's Haar cascades for frontal and turned faces, for the face finder: a third opinion on a
// weak face. Blurred, dim faces in a crowd that BlazeFace barely sees and that are too small for
// HOG often still show the cascades' light and dark bands of brows, eyes and cheeks.
#pragma once

#include <opencv2/core.hpp>

namespace ql::vision::cascade {

/// How many neighbouring windows of the frontal cascade, and for a face that may be `turned` also
/// of the profile cascade looking either way, agree on a face of about `box`'s size and place in
/// the 8-bit grey image (the most of them): 0 for none, for a box under 32 px or without the
/// cascades; 1 to 3 is a guess, 10 and more a clear face.
int votes(const cv::Mat& gray, const cv::Rect2f& box, bool turned);

}  // namespace ql::vision::cascade
