#include "ImageWriter.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "PathNames.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/PngCodec.h"
#include "imaging/codec/SrgbProfile.h"
#include "imaging/codec/TiffCodec.h"

namespace ql {

namespace {

// A file name beside the target that no one else uses; removed again unless renamed into place.
class TemporaryBeside {
  public:
    explicit TemporaryBeside(const std::string& target) : path_(target + ".XXXXXX") {
        const int fd = ::mkstemp(path_.data());
        if (fd < 0) throw std::runtime_error(std::strerror(errno));
        ::close(fd);
    }
    ~TemporaryBeside() {
        if (!path_.empty()) ::unlink(path_.c_str());
    }
    TemporaryBeside(const TemporaryBeside&) = delete;
    TemporaryBeside& operator=(const TemporaryBeside&) = delete;

    const std::string& path() const { return path_; }
    void renameTo(const std::string& target) {
        if (std::rename(path_.c_str(), target.c_str()) != 0)
            throw std::runtime_error(std::strerror(errno));
        path_.clear();
    }

  private:
    std::string path_;
};

}  // namespace

ExportFormat exportFormatForPath(const std::string& path) {
    const std::string ext = lowerExtension(path);
    if (ext == "tif" || ext == "tiff") return ExportFormat::tiff16;
    if (ext == "png") return ExportFormat::png;
    return ExportFormat::jpeg;
}

void writeImage(const img::Image& image, const std::string& path, ExportFormat format, int quality,
                const img::Metadata& metadata, const img::Execution& exec) {
    if (image.empty()) throw std::runtime_error("there is no picture to write");
    TemporaryBeside temporary(path);
    switch (format) {
        case ExportFormat::jpeg: {
            img::JpegWriteOptions options;
            options.quality = std::clamp(quality, 1, 100);
            options.icc = img::srgbIccProfile();
            img::writeJpeg(image, temporary.path(), options, exec);
            break;
        }
        case ExportFormat::png:
            img::writePng8(image, temporary.path(), exec);
            break;
        case ExportFormat::tiff16:
            img::writeTiff16(image, temporary.path(), exec);
            break;
    }
    std::string error;
    if (!metadata.empty() &&
        !metadata.writeInto(temporary.path(), image.width(), image.height(), &error))
        throw std::runtime_error(error);
    temporary.renameTo(path);
}

}  // namespace ql
