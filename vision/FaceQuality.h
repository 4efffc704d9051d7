// How well a face was captured, for culling: sharp, well exposed, large enough, facing the camera.
#pragma once

#include "Bitmap.h"
#include "FaceDetector.h"

namespace ql::vision {

namespace FaceQuality {

/// 0 (unusable) … 1 (a sharp, well exposed, frontal face of good size).
double score(const Bitmap& bitmap, const DetectedFace& face);

}  // namespace FaceQuality

}  // namespace ql::vision
