// A line of text as a picture: white medium-weight sans over a soft drop shadow, for stamping
// onto photos.
#pragma once

#include <string_view>

#include "imaging/Image.h"

namespace ql::img {

/// The largest text picture drawn, per side and in all: a float picture of this many pixels
/// takes 128 MB.
inline constexpr int kMaxTextSide = 32768;
inline constexpr double kMaxTextPixels = double(1 << 23);

struct TextExtent {
    double width = 0, height = 0;  // before truncation to whole pixels
};

/// The size textImage would give, unrounded and without the size limits, so that a caller can
/// pick a height that fits. Zero for what textImage leaves empty for any other reason.
TextExtent textExtent(std::string_view utf8Text, double height);

/// `utf8Text` on one line in white "Noto Sans" medium at a pixel size of `height` (fractional
/// sizes scale the outlines, so any height is exact). The picture is the glyph outlines' bounds
/// plus an inset of 0.3 × height on every side, truncated to whole pixels; the outlines' lower
/// left corner sits at the inset. Under the text lies a shadow: the outlines moved down by
/// 0.04 × height, blurred with σ = 0.15 × height, black at 60 %. Premultiplied, linear.
///
/// Empty when there is no QGuiApplication, the height is not positive and finite, the text draws
/// nothing (blank or more than 10,000 characters), or the picture would be larger than the
/// limits above.
Image textImage(std::string_view utf8Text, double height);

}  // namespace ql::img
