// Writing a finished picture: sRGB, upright, with the source's metadata carried over.
#pragma once

#include <string>

#include "imaging/Execution.h"
#include "imaging/Image.h"
#include "imaging/codec/Metadata.h"

namespace ql {

enum class ExportFormat { jpeg, png, tiff16 };

/// The format an output path asks for: "tif" or "tiff" give 16-bit TIFF, "png" PNG, anything
/// else JPEG (extensions compared in lower case).
ExportFormat exportFormatForPath(const std::string& path);

/// Writes `image` atomically: JPEG at `quality` (1 to 100), 8-bit PNG or 16-bit TIFF, each
/// tagged sRGB. The metadata goes along with orientation 1 and the written size. Throws
/// std::runtime_error with the reason.
void writeImage(const img::Image& image, const std::string& path, ExportFormat format, int quality,
                const img::Metadata& metadata, const img::Execution& exec = {});

}  // namespace ql
