// The mask of the people in a picture: the person segmentation, the faces over it, and the
// foreground objects that overlap them.
#pragma once

#include <optional>
#include <vector>

#include "Bitmap.h"
#include "FaceShape.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::vision {

namespace PersonMask {

/// White where people are (at the mask's strength, alpha included, so black is clear), at the
/// picture's size scaled to a long edge of at most 2048; nothing when no people are seen. Without
/// the segmentation model only the faces are masked.
std::optional<img::Image> compute(const img::Image& image, const img::Execution& exec = {});

/// As compute, on the picture's bitmap (a long edge of at most 2048 keeps it quick; the mask
/// has the bitmap's size). `faces`, when given, are the faces already found (boxes normalised to
/// the bitmap, origin top left, as FaceDetector gives them) instead of looking for them again.
std::optional<img::Image> compute(const Bitmap& bitmap, const std::vector<Rect>* faces,
                                  const img::Execution& exec = {});

/// `mask` scaled to width × height; with `feather`, eroded a little and then blurred, so that
/// the edge is soft without a halo around the person.
img::Image fitted(const img::Image& mask, int width, int height, bool feather,
                  const img::Execution& exec = {});

/// The mean of the mask's first channel, 0…1.
double coverage(const img::Image& mask);

}  // namespace PersonMask

}  // namespace ql::vision
