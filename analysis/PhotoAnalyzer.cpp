#include "PhotoAnalyzer.h"

#include <algorithm>
#include <future>

#include "AutoTone.h"
#include "ImageAnalyzer.h"
#include "PixelBuffer.h"
#include "imaging/LanczosScale.h"
#include "imaging/codec/JpegCodec.h"
#include "render/Develop.h"
#include "render/Straighten.h"

namespace ql {
namespace {

constexpr double kMeasureSide = 640;
constexpr int kModelJpegSide = 1024;

/// The same ratios on RAW: a patch measured as the analysis measures a picture.
std::array<double, 3> neutralOf(const img::Image& image) {
    const auto buffer = PixelBuffer::make(image, kMeasureSide);
    return buffer ? ImageAnalyzer::neutralEstimate(*buffer) : std::array<double, 3>{1, 1, 1};
}

}  // namespace

std::optional<PhotoAnalysis> PhotoAnalyzer::analysis(ImageSource& source, bool withJPEG) {
    if (cache_ && cache_->first == source.url() && (!withJPEG || cache_->second.jpeg))
        return cache_->second;

    const Adjustments& plain = Adjustments::defaults();
    const img::Image base = source.previewBase(plain);
    if (base.empty()) return std::nullopt;
    const img::Image rendered = develop(source, pipeline_, plain, base);
    auto buffer = PixelBuffer::make(rendered, kMeasureSide);
    if (!buffer) return std::nullopt;

    // The level finder runs beside the measures and the people: the two cores share the work.
    auto level = std::async(std::launch::async, [&] { return Straighten::level(rendered); });

    PhotoAnalysis a;
    ImageStats& s = a.stats;
    s = ImageAnalyzer::stats(*buffer);
    const std::vector<vision::Rect> faces = source.faceBoxes(rendered);
    s.faces = ImageAnalyzer::faceInfo(faces, *buffer);
    s.colors = ImageAnalyzer::dominantColors(*buffer, 5);
    s.sharpness = ImageAnalyzer::sharpness(*buffer, faces);
    if (!faces.empty()) s.peopleCoverage = source.personCoverage(rendered).value_or(0);
    if (const auto found = level.get()) {
        s.lean = found->angle;
        s.leanConfidence = found->confidence;
    }

    std::vector<float> maxLinear(buffer->count());
    for (size_t i = 0; i < maxLinear.size(); ++i) {
        const float* p = buffer->pixels.data() + i * 4;
        maxLinear[i] = std::max({p[0], p[1], p[2]});
    }
    std::sort(maxLinear.begin(), maxLinear.end());
    a.autoTone = AutoTone::suggest(s, maxLinear);

    const auto measured = WhiteBalance::neutralize(s.castR, 1, s.castB);
    if (!source.isRAW()) {
        std::tie(a.neutralTemperature, a.neutralTint) = measured;
    } else if (const auto lut = source.cameraLUT(); lut && !lut->empty()) {
        // The picture has passed the camera's own colours, so the cast is measured there;
        // 2.5 turns slider units into mired.
        a.neutralTemperature = source.asShotTemperature();
        a.neutralTint = source.asShotTint();
        a.lookWarmth = measured.first * 2.5;
        a.lookTint = measured.second;
    } else {
        const auto neutral = source.rawNeutral({}, neutralOf);
        a.neutralTemperature = neutral ? neutral->temperature : source.asShotTemperature();
        a.neutralTint = neutral ? neutral->tint : source.asShotTint();
    }

    if (withJPEG) {
        const double scale = std::min(1.0, double(kModelJpegSide) / rendered.longEdge());
        const img::Image small =
            scale < 1 ? img::lanczosScale(rendered, {float(scale), 1}) : rendered;
        img::JpegWriteOptions options;
        options.quality = 85;
        try {
            a.jpeg = img::encodeJpeg(small, options);
        } catch (const std::exception&) {
            return std::nullopt;
        }
    }
    cache_ = {source.url(), a};
    return a;
}

}  // namespace ql
