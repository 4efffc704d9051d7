// Body joints of every person in a picture, from MoveNet MultiPose.
#pragma once

#include <optional>
#include <vector>

#include "Bitmap.h"
#include "FaceShape.h"

namespace ql::vision {

/// Joints in the bitmap's pixels; sides are the subject's own. A joint the model is not sure of
/// (confidence 0.25 or less) is absent.
struct BodyPose {
    std::optional<Point> neck, leftShoulder, rightShoulder, leftHip, rightHip, root, leftKnee,
        rightKnee, leftAnkle, rightAnkle, leftElbow, rightElbow, leftWrist, rightWrist;
    /// Some joints were inferred rather than seen: at least one comes from a keypoint the model
    /// was unsure of (confidence 0.25 to 0.4), and the neck and root inherit the doubt of the
    /// shoulders and hips they are midpoints of.
    bool guessed = false;
    float confidence = 0;  // the person's score, 0…1

    /// The people in the bitmap, most certain first; none when the model is unavailable.
    static std::vector<BodyPose> detect(const Bitmap& bitmap);
};

}  // namespace ql::vision
