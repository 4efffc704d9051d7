#include "ImageWriter.h"

#include <algorithm>
#include <stdexcept>

#include "PathNames.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/PngCodec.h"
#include "imaging/codec/SrgbProfile.h"
#include "imaging/codec/TiffCodec.h"

namespace ql {

ExportFormat exportFormatForPath(const std::string& path) {
    const std::string ext = lowerExtension(path);
    if (ext == "tif" || ext == "tiff") return ExportFormat::tiff16;
    if (ext == "png") return ExportFormat::png;
    return ExportFormat::jpeg;
}

void writeImage(const img::Image& image, const std::string& path, ExportFormat format, int quality,
                const img::Metadata& metadata, const img::Execution& exec) {
    if (image.empty()) throw std::runtime_error("there is no picture to write");
    switch (format) {
        case ExportFormat::jpeg: {
            img::JpegWriteOptions options;
            options.quality = std::clamp(quality, 1, 100);
            options.exif = metadata.exifApp1(image.width(), image.height());
            options.icc = img::srgbIccProfile();
            img::writeJpeg(image, path, options, exec);
            return;
        }
        case ExportFormat::png:
            img::writePng8(image, path, exec);
            break;
        case ExportFormat::tiff16:
            img::writeTiff16(image, path, exec);
            break;
    }
    // PNG and TIFF take their metadata after the pixels are on disk; a failure there leaves a
    // good picture without tags rather than no picture.
    if (!metadata.empty()) metadata.writeInto(path, image.width(), image.height());
}

}  // namespace ql
