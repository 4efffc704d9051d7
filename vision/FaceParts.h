// Face landmarks: FaceMesh's 468 points read as named regions, refined by the iris model.
#pragma once

#include <vector>

#include "Bitmap.h"
#include "FaceDetector.h"
#include "FaceShape.h"

namespace ql::vision {

namespace FaceParts {

/// Landmarks of every face in the bitmap (faces narrower than 0.01 of the width are passed
/// over), in the bitmap's pixels.
std::vector<FaceShape> detect(const Bitmap& bitmap);

/// Landmarks of faces already found; a face the mesh does not accept as one is left out.
std::vector<FaceShape> detect(const Bitmap& bitmap, const std::vector<DetectedFace>& faces);

}  // namespace FaceParts

}  // namespace ql::vision
