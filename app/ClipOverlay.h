// The clipping warning drawn over the preview.
#pragma once

#include <QImage>

namespace ql::ClipOverlay {

/// Red (230, 30, 30) where the brightest channel is at least 254, blue (20, 90, 230) where it
/// is at most 1, both at alpha 230; clear elsewhere. Null for a null image.
QImage make(const QImage& image);

}  // namespace ql::ClipOverlay
