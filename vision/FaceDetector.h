// Finding faces: BlazeFace over the whole frame and over overlapping tiles, merged with dlib's
// HOG detector for small frontal faces.
#pragma once

#include <array>
#include <vector>

#include "Bitmap.h"
#include "FaceShape.h"
#include "imaging/Image.h"

namespace ql::vision {

struct DetectedFace {
    Rect box;          // normalised to the picture's width and height, origin top left
    float confidence;  // 0…1; 0.6 and above is a sure face, 0.5 a likely one
    /// Normalised like `box`: eye on the image left, eye on the image right, nose tip, mouth
    /// centre, ear on the image left, ear on the image right. A face found only by the HOG
    /// detector has them estimated from its box.
    std::array<Point, 6> keypoints;
};

/// How far a face is turned, from its eyes and nose tip: the nose's offset from the eyes' midpoint
/// along the eye line, per eye distance. About 0 facing the camera, 0.5 in three-quarter view; 0
/// when the eyes coincide.
double yaw(const Point& eye, const Point& otherEye, const Point& nose);

namespace FaceDetector {

/// Faces of the bitmap at or above `minConfidence`, best first. Work is done on a copy whose long
/// edge is at most 1600. No faces when the detector's model is unavailable.
std::vector<DetectedFace> find(const Bitmap& bitmap, float minConfidence = 0.5f);

/// As find, with one look at the whole frame: no tiles and no HOG detector, so only faces of
/// about a twentieth of the long edge and more, in a fraction of the time.
std::vector<DetectedFace> findLarge(const Bitmap& bitmap, float minConfidence = 0.5f);

/// The boxes of the sure faces (confidence 0.6 and above), normalised, origin top left.
std::vector<Rect> detect(const img::Image& image);

}  // namespace FaceDetector

}  // namespace ql::vision
