// A cheap print of a whole frame for telling bursts of one shot from different shots.
#pragma once

#include <array>
#include <cstdint>

#include "Bitmap.h"

namespace ql::vision {

struct ImagePrint {
    // Filled in with the descriptor's own layout.
    std::array<float, 256> values{};

    static ImagePrint of(const Bitmap& bitmap);

    /// 0 for the same frame; frames of one burst stay below sameShot, different shots above.
    static float distance(const ImagePrint& a, const ImagePrint& b);
    static constexpr float sameShot = 0.25f;
};

}  // namespace ql::vision
