// How well a face was captured, for culling: sharp, well exposed, large enough, facing the camera.
#pragma once

#include "Bitmap.h"
#include "FaceDetector.h"

namespace ql::vision {

namespace FaceQuality {

/// 0 (unusable) … 1 (a sharp, well exposed, frontal face of good size):
///   score = S^0.35 · E^0.25 · Z^0.2 · P^0.2,
/// each factor 0…1; ramp(v, lo, hi) is 0 at lo, 1 at hi, linear between and clamped. S and E are
/// measured on the grey inner face: the box less 12 % at the sides and 10 % at top and bottom.
/// - S, sharpness: the face scaled to 96 px wide and smoothed with σ 0.8 px;
///   r = the Laplacian's standard deviation / (the face's standard deviation + 4);
///   S = ramp(r, 0.03, 0.10).
/// - E, exposure: m = mean grey 0…1, c = share of pixels at or below 5 or at or above 250;
///   E = (1 − ramp(|m − 0.5|, 0.22, 0.42)) · (1 − ramp(c, 0.05, 0.35)).
/// - Z, size: Z = ramp(log2 w, log2 24, log2 160) for the box width w in pixels.
/// - P, pose, from the keypoints: roll = the eye line's angle in degrees; yaw = the nose's offset
///   from the eyes' midpoint along the eye line, per eye distance; spread = eye distance / box
///   width; P = (1 − 0.5 · ramp(roll, 12, 45)) · (1 − 0.8 · ramp(yaw, 0.12, 0.5))
///   · ramp(spread, 0.12, 0.3); 0.5 when the eyes coincide.
/// 0 for a box outside the bitmap, an empty box or an empty bitmap.
double score(const Bitmap& bitmap, const DetectedFace& face);

}  // namespace FaceQuality

}  // namespace ql::vision
