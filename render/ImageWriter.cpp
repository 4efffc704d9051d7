#include "ImageWriter.h"

#include <algorithm>
#include <stdexcept>

#include "edit/PathNames.h"
#include "imaging/codec/AtomicFile.h"
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
    img::AtomicFile temporary(path, img::AtomicFile::Mode::byPath);
    switch (format) {
        case ExportFormat::jpeg: {
            img::JpegWriteOptions options;
            options.quality = std::clamp(quality, 1, 100);
            options.icc = img::srgbIccProfile();
            img::writeJpeg(image, temporary.temporaryPath(), options, exec);
            break;
        }
        case ExportFormat::png:
            img::writePng8(image, temporary.temporaryPath(), exec);
            break;
        case ExportFormat::tiff16:
            img::writeTiff16(image, temporary.temporaryPath(), exec);
            break;
    }
    std::string error;
    if (!metadata.empty() &&
        !metadata.writeInto(temporary.temporaryPath(), image.width(), image.height(), &error))
        throw std::runtime_error(error);
    temporary.commit();
}

}  // namespace ql
