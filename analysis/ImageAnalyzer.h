// Measures of a picture, taken on a PixelBuffer. Pure functions.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "ImageStats.h"
#include "PixelBuffer.h"

namespace ql::ImageAnalyzer {

/// Percentiles, clipping, saturation and the colour boxes in one pass; the caller's fields
/// (faces, colours, sharpness, lean, people) stay empty. All zero, casts 1, for no pixels.
ImageStats stats(const PixelBuffer& buffer);

/// The neutral white as (r, g, b) ratios with g = 1: gray-world blended with the average of the
/// brighter near-neutral pixels when there are enough of them.
std::array<double, 3> neutralEstimate(const PixelBuffer& buffer);

/// The middle of each face (a rectangle shrunk by 22 % of its width and 20 % of its height on
/// each side). A rectangle that leaves no pixel is dropped.
std::vector<FaceInfo> faceInfo(const std::vector<vision::Rect>& rects, const PixelBuffer& buffer);

/// The mean of the top decile of the Laplacian of encoded luma over each region (normalised
/// rectangles; the middle of the frame when none), averaged over the regions.
double sharpness(const PixelBuffer& buffer, const std::vector<vision::Rect>& regions);

/// k-means over at most about 3000 samples, 12 rounds; clusters of more than 3 % of the sample,
/// largest first. Empty when there are not more samples than `count`.
std::vector<DominantColor> dominantColors(const PixelBuffer& buffer, int count);

/// The Vietnamese colour word of an encoded colour.
std::string colorName(double r, double g, double b);

}  // namespace ql::ImageAnalyzer
