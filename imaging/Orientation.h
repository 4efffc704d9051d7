// Turning a stored picture upright by its EXIF orientation.
#pragma once

#include <cstddef>

#include "CropRegion.h"
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

struct SourcePoint {
    int x, y;
};

/// For a stored picture of w × h pixels, the stored pixel that lands at (x, y) of the upright one.
inline SourcePoint orientedSource(int orientation, int w, int h, int x, int y) {
    switch (orientation) {
        case 2:
            return {w - 1 - x, y};
        case 3:
            return {w - 1 - x, h - 1 - y};
        case 4:
            return {x, h - 1 - y};
        case 5:
            return {y, x};
        case 6:
            return {y, h - 1 - x};
        case 7:
            return {w - 1 - y, h - 1 - x};
        case 8:
            return {w - 1 - y, x};
        default:
            return {x, y};
    }
}

/// Copies a stored picture of w × h pixels of `pixelBytes` each (3: 8-bit RGB, or 16: float
/// RGBA) into `out` (its upright size, tightly packed) as `orientation` turns it. Returns false
/// when cancelled.
bool orientPixels(const void* in, int w, int h, size_t pixelBytes, int orientation, void* out,
                  const Execution& exec = {});

/// The picture as it should be displayed, for a stored picture with the given orientation:
/// 2 mirrors, 3 turns half way, 4 flips, 5 transposes, 6 turns a quarter clockwise, 7 transverses,
/// 8 turns a quarter anticlockwise. 1 (and anything out of range) returns the input.
Image orient(const Image& input, int orientation, const Execution& exec = {});

/// The part `from` of the stored picture, clipped to it, as `orient` would show it: the cut and
/// the turn in one pass. A rectangle that misses the picture gives an empty image.
Image orient(const Image& input, int orientation, const PixelRect& from,
             const Execution& exec = {});

}  // namespace ql::img
