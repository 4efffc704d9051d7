// A cheap print of a whole frame for telling bursts of one shot from different shots.
#pragma once

#include <array>
#include <cstdint>

#include "Bitmap.h"

namespace ql::vision {

/// Made from a 32 × 32 grid of cell means (a sparse sample of each cell's pixels, so the cost
/// hardly depends on the bitmap's size). `values` holds, in order:
/// - 48: CIE Lab of 4 × 4 blocks, row by row, divided by 100, the lightness less the frame's
///   mean lightness (a re-exposed frame keeps its print);
/// - 64: an 8 × 8 lightness thumbnail, zero mean, unit length;
/// - 128: gradient energy of the lightness grid in 8 orientations for each of 4 × 4 blocks,
///   unit length (so independent of exposure and contrast);
/// - 16 zeros.
struct ImagePrint {
    std::array<float, 256> values{};

    /// All zero for an empty bitmap.
    static ImagePrint of(const Bitmap& bitmap);

    /// Euclidean distance over `values`: 0 for the same frame, at most about 3.5. Frames of one
    /// burst (3 % reframed, ±1 EV, sensor noise) measured up to 0.48, different photos from 1.3
    /// up; sameShot sits between the two.
    static float distance(const ImagePrint& a, const ImagePrint& b);
    static constexpr float sameShot = 0.8f;
};

}  // namespace ql::vision
