#include "Exporter.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "ExportMetadata.h"
#include "ImageWriter.h"
#include "Watermark.h"
#include "imaging/Composite.h"
#include "imaging/LanczosScale.h"

namespace ql::Exporter {

namespace {

bool turnsWhite(const Adjustments& adjustments, ExportFormat format) {
    const auto& backdrop = adjustments.backdrop;
    return format == ExportFormat::jpeg && backdrop && backdrop->on &&
           backdrop->kind == Backdrop::Kind::transparent;
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

[[noreturn]] void cannotWrite(const std::string& to, const std::string& why) {
    throw ExportError(ExportError::Code::fileWriteUnknown, "cannot write \"" + to + "\": " + why);
}

}  // namespace

img::Image render(ImageSource& source, const Adjustments& adjustments, const Pipeline& pipeline,
                  const ExportOptions& options, const std::optional<Watermark>& watermark,
                  const img::Execution& exec) {
    std::string error;
    const img::Image base = source.fullBase(adjustments, &error);
    if (base.empty()) {
        if (error.empty()) error = "the photo gave no picture";
        throw ExportError(ExportError::Code::fileReadCorruptFile,
                          "cannot read \"" + source.url() + "\": " + error);
    }
    // The people and subject masks come from the vision models; until those are loaded here the
    // edits that need them render without.
    img::Image picture = pipeline.apply(adjustments, base, source.isRAW(), source.cameraLUT(), true,
                                        {}, nullptr, {}, exec);
    if (picture.empty() && !exec.cancelled())
        throw ExportError(ExportError::Code::fileWriteUnknown, "the edit gave no picture");
    if (turnsWhite(adjustments, options.format))
        picture = img::sourceOver(
            picture, img::Image::filled(picture.width(), picture.height(), {1, 1, 1, 1}), exec);
    picture = limited(picture, options, exec);
    if (watermark) picture = stamp(picture, *watermark);
    if (exec.cancelled()) return {};
    return picture;
}

void exportImage(ImageSource& source, const Adjustments& adjustments, const Pipeline& pipeline,
                 const ExportOptions& options, const std::string& to,
                 const std::optional<Watermark>& watermark, const std::string& copyright,
                 const std::optional<PhotoMeta>& meta, const img::Execution& exec) {
    img::Image picture;
    try {
        picture = render(source, adjustments, pipeline, options, watermark, exec);
    } catch (const std::bad_alloc&) {
        cannotWrite(to, "not enough memory to render this photo");
    }
    if (picture.empty()) cannotWrite(to, "the export was cancelled");
    const img::Metadata properties =
        exportProperties(source.properties(), copyright, meta ? &*meta : nullptr);
    const double quality = std::isfinite(options.quality) ? options.quality : 92.0;
    try {
        writeImage(picture, to, options.format, int(std::lround(std::clamp(quality, 0.0, 100.0))),
                   properties, exec);
    } catch (const std::exception& e) {
        cannotWrite(to, e.what());
    }
}

}  // namespace ql::Exporter
