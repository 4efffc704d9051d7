// HEIF and HEIC through libheif: the primary image, upright (the format's own rotation and
// mirroring are part of the picture), with its ICC profile or colour box.
#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img {

/// Decodes the primary image to linear sRGB, already upright. Throws DecodeError.
Image decodeHeif(std::span<const uint8_t> bytes, const Execution& exec = {});

/// Width and height of the primary image, upright, without decoding it. Throws DecodeError.
std::pair<int, int> readHeifSize(std::span<const uint8_t> bytes);

/// The largest embedded thumbnail of the primary image, upright; empty when there is none.
Image decodeHeifThumbnail(std::span<const uint8_t> bytes);

}  // namespace ql::img
