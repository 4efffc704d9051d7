// The stamp an export lays over each picture: a logo, or failing that a line of text.
#pragma once

#include <optional>

#include "edit/ExportRecipe.h"
#include "imaging/Image.h"

namespace ql {

struct WatermarkOverlay {
    img::Image image;  // premultiplied, the opacity already applied
    int x = 0, y = 0;  // top left of the stamp in the picture, from the picture's top left
};

/// The stamp for a picture of `width` × `height`, L its long edge and S its short edge:
/// - the logo at `imagePath` when that file decodes, scaled to a width of L × size;
/// - otherwise the text, when it is not blank, at a height of max(S × size × 0.35, 12);
/// - otherwise nothing.
/// A logo that loads but would be under a pixel gives nothing at all, not the text. The stamp
/// sits S × 0.03 in from the corner's two edges (centred: in the middle), its four channels
/// multiplied by the opacity clamped to [0, 1]. Nothing for an opacity of 0 (or NaN) or an empty
/// picture. A non-finite size counts as 0, and a stamp is scaled down to at most 4 × L a side.
std::optional<WatermarkOverlay> overlay(const Watermark& watermark, int width, int height);

/// The picture with its stamp laid over it (source-over; parts outside the picture are cut
/// off). Without a stamp, the picture itself.
img::Image stamp(const img::Image& picture, const Watermark& watermark);

}  // namespace ql
