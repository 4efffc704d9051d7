// JPEG through libjpeg-turbo: decoding with DCT scaling and the embedded ICC profile, encoding
// with EXIF and a profile.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img {

struct JpegHeader {
    int width = 0, height = 0;
};

/// The stored size, from the header alone. Throws DecodeError.
JpegHeader readJpegHeader(std::span<const uint8_t> bytes);

/// Decodes at 1/reduction of the stored size (1, 2, 4 or 8: the decoder skips the detail instead
/// of computing it), converted from the file's colour space to linear sRGB. Not oriented.
/// Throws DecodeError for a damaged file, including one that ends early.
Image decodeJpeg(std::span<const uint8_t> bytes, int reduction = 1, const Execution& exec = {});

/// The largest DCT reduction that still leaves the long edge at `targetLongEdge` or more.
int jpegReductionFor(int width, int height, int targetLongEdge);

struct JpegWriteOptions {
    int quality = 92;           // 1 to 100
    std::vector<uint8_t> exif;  // an APP1 payload starting "Exif\0\0"; none when empty
    std::vector<uint8_t> icc;   // an ICC profile to embed; none when empty
};

/// Writes 8-bit sRGB, atomically. Throws std::runtime_error with the reason.
void writeJpeg(const Image& image, const std::string& path, const JpegWriteOptions& options,
               const Execution& exec = {});

/// The same into memory.
std::vector<uint8_t> encodeJpeg(const Image& image, const JpegWriteOptions& options,
                                const Execution& exec = {});

/// A JPEG encoded again from its own 8-bit samples, turned upright by EXIF `orientation`: exactly
/// what decoding, making no change and encoding would write, without the float picture between.
/// While the picture needs no turn, rows are encoded as soon as they are decoded. Nullopt when
/// the file's colours must be converted (a profile other than sRGB, grey, CMYK) or when cancelled.
/// Throws DecodeError for a damaged file, std::runtime_error when encoding fails.
std::optional<std::vector<uint8_t>> reencodeJpeg(std::span<const uint8_t> bytes, int orientation,
                                                 const JpegWriteOptions& options,
                                                 const Execution& exec = {});

}  // namespace ql::img
