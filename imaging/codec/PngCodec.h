// PNG through libpng: 8- and 16-bit, grey, palette and alpha, with the embedded ICC profile.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img {

/// Decodes to linear sRGB. Throws DecodeError.
Image decodePng(std::span<const uint8_t> bytes, const Execution& exec = {});

/// Writes 8-bit sRGB RGBA (RGB when every pixel is opaque), atomically, with an sRGB chunk.
/// Throws std::runtime_error with the reason.
void writePng8(const Image& image, const std::string& path, const Execution& exec = {});

}  // namespace ql::img
