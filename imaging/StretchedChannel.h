// One channel of a small picture read at another size, row by row: a mask found at analysis
// size, or noise made at print size, without making a full-size copy of it.
#pragma once

#include <utility>
#include <vector>

#include "Image.h"

namespace ql::img {

class StretchedChannel {
  public:
    /// Output pixel (x, y) of rows `width` long reads `image` at ((x + ½)·sx − ½, (y + ½)·sy − ½),
    /// bilinearly between pixel centres and held at the edges. With sx = sy = 1 and an output
    /// of the image's own width, the channel itself, exactly. Keeps a reference to `image`.
    StretchedChannel(const Image& image, int channel, int width, double sx, double sy);

    /// Output row y, `width` floats.
    void row(int y, float* out) const;

  private:
    // The first of the two source pixels around output position i, and the second's weight.
    static std::pair<int, float> tap(int i, double scale, int size);

    const Image& image_;
    int channel_, width_;
    double sy_;
    bool same_;
    std::vector<int> x0_;
    std::vector<float> wx_;
};

}  // namespace ql::img
