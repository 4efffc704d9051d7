// One entry for every non-RAW format: the header alone, or the pixels, told apart by content.
#pragma once

#include <cstdint>
#include <span>

#include "FileKind.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img {

struct ImageHeader {
    FileKind kind = FileKind::unknown;
    int width = 0, height = 0;  // as stored
    bool upright = false;       // the decoder already applies the orientation (HEIF)
};

/// The format and stored size. Throws DecodeError for anything that is not a readable JPEG, PNG,
/// TIFF or HEIF image.
ImageHeader readImageHeader(std::span<const uint8_t> bytes);

/// The pixels in linear sRGB, as stored (see ImageHeader::upright). With `atLeastLongEdge` > 0 a
/// JPEG is decoded at the smallest DCT scale whose long edge is still at least that many pixels.
/// Throws DecodeError.
Image decodeImage(std::span<const uint8_t> bytes, int atLeastLongEdge = 0,
                  const Execution& exec = {});

}  // namespace ql::img
