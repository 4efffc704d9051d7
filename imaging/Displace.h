// Warping an image through a displacement field: the mechanism of liquify and lens distortion.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct DisplaceParams {
    /// Pixels of offset per unit of the field; neutral 0.
    float scale = 0;
};

/// Each output pixel p samples the input at p + scale × (field.r, field.g), bilinearly, with
/// clamped edges. The field may have any size: it is stretched over the image and read
/// bilinearly. With a mask of the image's size, the offset is also multiplied by the mask's
/// red (clamped to 0…1), so that where the mask is 0 the picture stays still. A field or mask of no
/// use (empty, wrong size for the mask) or a non-finite scale leaves the input.
Image displace(const Image& input, const Image& field, const DisplaceParams& p,
               const Execution& exec = {});
Image displace(const Image& input, const Image& field, const Image& mask, const DisplaceParams& p,
               const Execution& exec = {});

}  // namespace ql::img
