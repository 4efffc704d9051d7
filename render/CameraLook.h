// The camera's own rendering of a RAW file, learnt from the JPEG it embedded: a 17-point colour
// cube from the plain development to that JPEG, fitted per file from a few thousand pixels.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "imaging/ColorCube.h"
#include "imaging/Image.h"

namespace ql {

namespace img {
class RawDecoder;
}

namespace CameraLook {

/// Nodes per axis of the learnt cube; it maps sRGB-encoded colour to sRGB-encoded colour.
inline constexpr int kCubeNodes = 17;
/// The long edge, in pixels, at which the plain development and the JPEG are compared.
inline constexpr int kSampleLongEdge = 320;

/// The bytes of the largest JPEG the file embeds (by width × height from its header), from start
/// marker to end marker; empty when there is none. The first 48,000,003 bytes are searched for
/// start markers, at most 40,000,000 bytes are taken from each, and LibRaw's own preview is
/// considered last, through `decoder` when given (otherwise the file is opened for it). A stream
/// that is cut short, does not parse, uses a coding the decoder lacks, or claims far more pixels
/// than its bytes can code is passed over.
std::vector<uint8_t> embeddedJPEG(const std::string& path, img::RawDecoder* decoder = nullptr);

/// The embedded JPEG decoded at the smallest DCT scale whose long edge is still at least
/// `atLeastLongEdge` (what the fit needs by default), turned upright by the RAW file's EXIF
/// `orientation`. Empty when it does not decode.
img::Image decodeEmbedded(std::span<const uint8_t> jpeg, int orientation,
                          int atLeastLongEdge = kSampleLongEdge);

/// embeddedJPEG then decodeEmbedded; empty when the file has none or it does not decode.
img::Image embeddedImage(const std::string& path, int orientation,
                         img::RawDecoder* decoder = nullptr);

struct Fit {
    /// kCubeNodes³ RGBA nodes, red fastest, for img::colorCube with sRGBSpace; null when the fit
    /// failed.
    img::CubeData lut;
    /// Mean colour difference (encoded sRGB, mean of the three channels' absolute differences)
    /// between the camera's picture and the plain one after the cube, and before it, over every
    /// seventh sample.
    double error = 0, before = 0;
};

/// Learns the cube that turns `plain` (the RAW decoder's rendering) into `camera` (the embedded
/// JPEG, oriented the same way); both linear sRGB. Fails (no lut) when the pictures are too small,
/// differ in aspect ratio by 0.02 or more (a JPEG cropped to another format), or leave too few
/// unclipped pixels. Deterministic.
Fit fit(const img::Image& plain, const img::Image& camera);

}  // namespace CameraLook
}  // namespace ql
