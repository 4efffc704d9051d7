// Writing a finished picture: sRGB, upright, with its metadata.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "edit/ExportRecipe.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/Metadata.h"

namespace ql {

/// The format an output path asks for: "tif" or "tiff" give 16-bit TIFF, "png" PNG, anything
/// else JPEG (extensions compared in lower case).
ExportFormat exportFormatForPath(const std::string& path);

/// Writes `image` as JPEG at `quality` (1 to 100), 8-bit PNG or 16-bit TIFF, each tagged sRGB,
/// with `metadata` (orientation 1, the written size, no maker notes or raw tags). Pixels and
/// metadata go into a temporary file beside `path` that is renamed over it only when both are
/// written, so a failure leaves whatever was at `path` before. Throws std::runtime_error with
/// the reason.
void writeImage(const img::Image& image, const std::string& path, ExportFormat format, int quality,
                const img::Metadata& metadata, const img::Execution& exec = {});

/// The options every JPEG that writeImage writes is encoded with.
img::JpegWriteOptions jpegOptions(int quality);

/// Writes an already encoded JPEG of width × height pixels with `metadata`, as writeImage does.
void writeEncodedJpeg(const std::vector<uint8_t>& bytes, int width, int height,
                      const std::string& path, const img::Metadata& metadata);

}  // namespace ql
