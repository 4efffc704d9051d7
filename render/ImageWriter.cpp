#include "ImageWriter.h"

#include <algorithm>
#include <cstdio>
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

namespace {

// Metadata goes into the written temporary file, which then replaces whatever was at the path.
void finish(img::AtomicFile& temporary, int width, int height, const img::Metadata& metadata) {
    std::string error;
    if (!metadata.empty() && !metadata.writeInto(temporary.temporaryPath(), width, height, &error))
        throw std::runtime_error(error);
    temporary.commit();
}

}  // namespace

img::JpegWriteOptions jpegOptions(int quality) {
    img::JpegWriteOptions options;
    options.quality = std::clamp(quality, 1, 100);
    options.icc = img::srgbIccProfile();
    return options;
}

void writeImage(const img::Image& image, const std::string& path, ExportFormat format, int quality,
                const img::Metadata& metadata, const img::Execution& exec) {
    if (image.empty()) throw std::runtime_error("there is no picture to write");
    if (format == ExportFormat::jpeg)
        return writeEncodedJpeg(img::encodeJpeg(image, jpegOptions(quality), exec), image.width(),
                                image.height(), path, metadata);
    img::AtomicFile temporary(path, img::AtomicFile::Mode::byPath);
    if (format == ExportFormat::png)
        img::writePng8(image, temporary.temporaryPath(), exec);
    else
        img::writeTiff16(image, temporary.temporaryPath(), exec);
    finish(temporary, image.width(), image.height(), metadata);
}

void writeEncodedJpeg(const std::vector<uint8_t>& bytes, int width, int height,
                      const std::string& path, const img::Metadata& metadata) {
    img::AtomicFile temporary(path, img::AtomicFile::Mode::byPath);
    FILE* file = std::fopen(temporary.temporaryPath().c_str(), "wb");
    if (!file) throw std::runtime_error("the temporary file could not be opened");
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !written) throw std::runtime_error("the disk refused the data");
    finish(temporary, width, height, metadata);
}

}  // namespace ql
