#include "Exporter.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <utility>

#include "Develop.h"
#include "ExportMetadata.h"
#include "ImageWriter.h"
#include "Watermark.h"
#include "imaging/LanczosScale.h"
#include "imaging/PixelMap.h"

namespace ql::Exporter {

namespace {

constexpr double kOversampling = 4.0 / 3.0;

bool turnsWhite(const Adjustments& adjustments, ExportFormat format) {
    const auto& backdrop = adjustments.backdrop;
    return format == ExportFormat::jpeg && backdrop && backdrop->on &&
           backdrop->kind == Backdrop::Kind::transparent;
}

// Laid over opaque white, in one pass with no white picture of its own (premultiplied: the
// white shows through by what alpha leaves).
img::Image overWhite(const img::Image& picture, const img::Execution& exec) {
    return img::mapPixels(picture, exec, [](const float* in, float* out) {
        const float white = 1 - std::clamp(in[3], 0.0f, 1.0f);
        out[0] = in[0] + white, out[1] = in[1] + white, out[2] = in[2] + white, out[3] = 1;
    });
}

img::Image limited(const img::Image& picture, const ExportOptions& options,
                   const img::Execution& exec) {
    if (!options.limitSize) return picture;
    const double scale = options.longEdge / double(picture.longEdge());
    if (!(scale < 1.0)) return picture;
    // A scale of zero or below gives no picture, which leaves the size as it was.
    const img::Image scaled = img::lanczosScale(picture, {float(scale), 1.0f}, exec);
    return scaled.empty() ? picture : scaled;
}

// An untouched photo delivered whole as a JPEG is its own samples encoded again: the float
// picture between would change no code.
bool deliveredUnchanged(const ImageSource& source, const Adjustments& adjustments,
                        const ExportOptions& options, const std::optional<Watermark>& watermark) {
    const bool whole = !options.limitSize || options.longEdge >= source.fullSize().longEdge();
    return options.format == ExportFormat::jpeg && whole && !watermark && !source.isRAW() &&
           adjustments == Adjustments{};
}

[[noreturn]] void cannotWrite(const std::string& to, const std::string& why) {
    throw ExportError(ExportError::Code::fileWriteUnknown, "cannot write \"" + to + "\": " + why);
}

}  // namespace

img::Image render(ImageSource& source, const Adjustments& adjustments, const Pipeline& pipeline,
                  const ExportOptions& options, const std::optional<Watermark>& watermark,
                  const img::Execution& exec) {
    // The base is handed over: the render works in its pixels, a picture fewer at full size.
    const auto developed = [&](img::Image base) {
        return develop(source, pipeline, adjustments, std::move(base), true, exec);
    };
    std::string error;
    img::Image picture;
    // A picture delivered smaller than the photo develops only the pixels it needs: a reduced
    // base, kept when even its cropped picture leaves the Lanczos shrink a third more pixels than
    // it delivers. Every radius of the edit follows the picture's size, so it looks the same.
    const double delivered = options.limitSize ? options.longEdge : 0;
    const double needed = delivered * kOversampling;
    if (needed >= 1 && needed < source.fullSize().longEdge()) {
        img::Image reduced = source.reducedBase(adjustments, int(std::ceil(needed)), &error);
        if (!reduced.empty() && reduced.longEdge() < source.fullSize().longEdge()) {
            picture = developed(std::move(reduced));
            if (picture.longEdge() < needed) picture = {};
        }
    }
    if (picture.empty() && !exec.cancelled()) {
        img::Image base = source.fullBase(adjustments, &error);
        if (base.empty()) {
            if (error.empty()) error = "the photo gave no picture";
            throw ExportError(ExportError::Code::fileReadCorruptFile,
                              "cannot read \"" + source.url() + "\": " + error);
        }
        picture = developed(std::move(base));
    }
    if (picture.empty() && !exec.cancelled())
        throw ExportError(ExportError::Code::fileWriteUnknown, "the edit gave no picture");
    if (turnsWhite(adjustments, options.format)) picture = overWhite(picture, exec);
    picture = limited(picture, options, exec);
    if (watermark) picture = stamp(picture, *watermark);
    if (exec.cancelled()) return {};
    return picture;
}

void exportImage(ImageSource& source, const Adjustments& adjustments, const Pipeline& pipeline,
                 const ExportOptions& options, const std::string& to,
                 const std::optional<Watermark>& watermark, const std::string& copyright,
                 const std::optional<PhotoMeta>& meta, const img::Execution& exec) {
    const img::Metadata properties =
        exportProperties(source.properties(), copyright, meta ? &*meta : nullptr);
    const double quality = std::isfinite(options.quality) ? options.quality : 92.0;
    const int level = int(std::lround(std::clamp(quality, 0.0, 100.0)));
    if (deliveredUnchanged(source, adjustments, options, watermark)) {
        if (const auto jpeg = source.unchangedJpeg(jpegOptions(level), exec)) {
            try {
                writeEncodedJpeg(*jpeg, source.fullSize().width, source.fullSize().height, to,
                                 properties);
            } catch (const std::exception& e) {
                cannotWrite(to, e.what());
            }
            return;
        }
        if (exec.cancelled()) cannotWrite(to, "the export was cancelled");
    }
    img::Image picture;
    try {
        picture = render(source, adjustments, pipeline, options, watermark, exec);
    } catch (const std::bad_alloc&) {
        cannotWrite(to, "not enough memory to render this photo");
    }
    if (picture.empty()) cannotWrite(to, "the export was cancelled");
    // The TIFF and PNG writers hold a whole copy of the picture in their own samples and the
    // metadata is written by reading the file back; the kept pictures of the stages would only
    // add to that peak. A JPEG's peak is the render's, and its next photo reuses them.
    if (options.format != ExportFormat::jpeg) img::releaseFreedPictures();
    try {
        writeImage(picture, to, options.format, level, properties, exec);
    } catch (const std::exception& e) {
        cannotWrite(to, e.what());
    }
}

}  // namespace ql::Exporter
