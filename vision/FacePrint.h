// A face's identity as 128 numbers: dlib's ResNet descriptor of the face aligned by its five-point
// model. Two prints of one person lie closer than 0.6 (Euclidean); different people farther.
#pragma once

#include <array>
#include <optional>

#include "Bitmap.h"
#include "FaceShape.h"

namespace ql::vision {

struct FacePrint {
    std::array<float, 128> values{};

    /// The print of the face in `box` (the bitmap's pixels); nothing when the models are
    /// unavailable or the box holds no usable face.
    static std::optional<FacePrint> of(const Bitmap& bitmap, const Rect& box);

    /// Euclidean distance; below sameFace the two are taken for one person.
    static float distance(const FacePrint& a, const FacePrint& b);
    static constexpr float sameFace = 0.6f;
};

}  // namespace ql::vision
