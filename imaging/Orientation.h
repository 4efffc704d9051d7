// Turning a stored picture upright by its EXIF orientation.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// An EXIF orientation value as this engine reads it: 1 to 8 are kept, anything else is 1.
inline int normalizedOrientation(long value) {
    return value >= 1 && value <= 8 ? int(value) : 1;
}

/// True for the orientations that swap width and height (5 to 8).
inline bool swapsAxes(int orientation) {
    return orientation >= 5 && orientation <= 8;
}

/// The picture as it should be displayed, for a stored picture with the given orientation:
/// 2 mirrors, 3 turns half way, 4 flips, 5 transposes, 6 turns a quarter clockwise, 7 transverses,
/// 8 turns a quarter anticlockwise. 1 (and anything out of range) returns the input.
Image orient(const Image& input, int orientation, const Execution& exec = {});

}  // namespace ql::img
