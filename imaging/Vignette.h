// Vignette: darkens (or lightens) the image away from a centre, as a lens does toward its corners.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct VignetteParams {
    // The centre in pixels from the top-left corner (pixel (x, y) has its centre at
    // (x + 0.5, y + 0.5)).
    float centerX = 0, centerY = 0;
    // Distance in pixels, ≥ 0 (negative counts as 0), inside which the image is untouched.
    float radius = 0;
    // −1…1 (clamped): positive darkens outside the radius, 1 to black; negative brightens, −1
    // doubling the colour. Neutral 0.
    float intensity = 0;
    // 0…1 (clamped; NaN counts as 0): the width of the transition beyond the radius, as a
    // fraction of the radius; 0 gives a hard edge.
    float falloff = 0.5f;
};

/// With d the distance of a pixel's centre from the centre, w = falloff·radius and
/// s = smoothstep((d − radius) / w) (0 inside the radius, 1 beyond radius + w, 3u² − 2u³
/// between), the colour is multiplied by 1 − intensity·s; alpha is kept (premultiplied colour
/// scales the same way). A non-finite centre, radius or intensity counts as neutral; neutral
/// returns the input.
Image vignette(const Image& input, const VignetteParams& p, const Execution& exec = {});

/// The gains vignette() multiplies each pixel's colour by, a row at a time, for operations that
/// take the vignette along in a pass of their own.
class VignetteGains {
  public:
    explicit VignetteGains(const VignetteParams& p);
    bool neutral() const { return neutral_; }
    /// gains[x] for the `width` pixels of row y.
    void row(int y, int width, float* gains) const;

  private:
    bool neutral_ = true;
    float centerX_ = 0, centerY_ = 0, radius_ = 0, width_ = 0, intensity_ = 0;
};

}  // namespace ql::img
