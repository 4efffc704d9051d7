// TIFF through libtiff: 8-, 16- and 32-bit float samples, strips and tiles, with the embedded
// ICC profile; other layouts (palette, CMYK, YCbCr, 1-bit) through libtiff's 8-bit reader.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img {

/// Decodes the first image of the file to linear sRGB, not oriented. Throws DecodeError.
Image decodeTiff(std::span<const uint8_t> bytes, const Execution& exec = {});

/// Writes 16-bit sRGB (RGBA when any pixel is not opaque) with an sRGB profile, atomically.
/// Throws std::runtime_error with the reason.
void writeTiff16(const Image& image, const std::string& path, const Execution& exec = {});

}  // namespace ql::img

namespace ql::img {

/// Width and height of the first image, from its directory alone. Throws DecodeError.
std::pair<int, int> readTiffSize(std::span<const uint8_t> bytes);

}  // namespace ql::img
