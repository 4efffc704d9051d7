#include "ImageDecode.h"

#include <algorithm>
#include <string_view>
#include <tuple>

#include "DecodeError.h"
#include "HeifCodec.h"
#include "JpegCodec.h"
#include "PngCodec.h"
#include "TiffCodec.h"

namespace ql::img {
namespace {

uint32_t bigEndian32(const uint8_t* p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

}  // namespace

ImageHeader readImageHeader(std::span<const uint8_t> bytes) {
    ImageHeader h;
    h.kind = sniffFileKind(bytes);
    switch (h.kind) {
        case FileKind::jpeg: {
            const JpegHeader j = readJpegHeader(bytes);
            h.width = j.width, h.height = j.height;
            break;
        }
        case FileKind::png:
            // The IHDR chunk always comes first.
            if (bytes.size() < 24 ||
                std::string_view(reinterpret_cast<const char*>(&bytes[12]), 4) != "IHDR")
                throw DecodeError("the PNG header is damaged");
            h.width = int(std::min<uint32_t>(bigEndian32(&bytes[16]), 1u << 30));
            h.height = int(std::min<uint32_t>(bigEndian32(&bytes[20]), 1u << 30));
            break;
        case FileKind::tiff:
            std::tie(h.width, h.height) = readTiffSize(bytes);
            break;
        case FileKind::heif:
            std::tie(h.width, h.height) = readHeifSize(bytes);
            h.upright = true;
            break;
        case FileKind::unknown:
            throw DecodeError("not an image format this program reads");
    }
    checkDimensions(h.width, h.height);
    return h;
}

Image decodeImage(std::span<const uint8_t> bytes, int atLeastLongEdge, const Execution& exec) {
    switch (sniffFileKind(bytes)) {
        case FileKind::jpeg: {
            int reduction = 1;
            if (atLeastLongEdge > 0) {
                const JpegHeader j = readJpegHeader(bytes);
                reduction = jpegReductionFor(j.width, j.height, atLeastLongEdge);
            }
            return decodeJpeg(bytes, reduction, exec);
        }
        case FileKind::png:
            return decodePng(bytes, exec);
        case FileKind::tiff:
            return decodeTiff(bytes, exec);
        case FileKind::heif:
            return decodeHeif(bytes, exec);
        case FileKind::unknown:
            break;
    }
    throw DecodeError("not an image format this program reads");
}

}  // namespace ql::img
