#include "ImageSource.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "CameraLook.h"
#include "edit/AppLanguage.h"
#include "edit/PathNames.h"
#include "imaging/BoxShrink.h"
#include "imaging/LanczosScale.h"
#include "imaging/Orientation.h"
#include "imaging/codec/DecodeError.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/raw/RawDecoder.h"
#include "imaging/raw/RawNoiseReduction.h"

namespace ql {

namespace {

std::string replaced(std::string text, std::string_view marker, const std::string& value) {
    const auto at = text.find(marker);
    if (at != std::string::npos) text.replace(at, marker.size(), value);
    return text;
}

// What the decoder's own noise reduction would do at this ISO: nothing at base ISO, more with
// every stop above it. The image source raises these (the pipeline sharpens afterwards).
ImageSource::NoiseDefaults decoderNoiseDefaults(int iso) {
    const double stops = iso > 100 ? std::log2(iso / 100.0) : 0;
    return {float(std::clamp(0.05 * stops, 0.0, 0.4)),
            float(std::clamp(0.3 + 0.08 * stops, 0.0, 1.0))};
}

}  // namespace

ImageSourceError::ImageSourceError(const std::string& path)
    : std::runtime_error(replaced(localized("Không mở được tệp “%1” vì tệp không đúng định dạng."),
                                  "%1", fileName(path))) {}

bool hasRawExtension(const std::string& path) {
    static const std::set<std::string> raw{
        "3fr", "ari", "arw", "bay", "cap", "cr2", "cr3", "crw", "dcr", "dcs", "dng", "drf", "eip",
        "erf", "fff", "gpr", "iiq", "k25", "kdc", "mdc", "mef", "mos", "mrw", "nef", "nrw", "orf",
        "pef", "ptx", "pxn", "r3d", "raf", "raw", "rw2", "rwl", "rwz", "sr2", "srf", "srw", "x3f"};
    return raw.count(lowerExtension(path)) > 0;
}

ImageSource::ImageSource(std::string path, int previewLongEdge)
    : previewLongEdge_(std::max(1, previewLongEdge)), url_(std::move(path)) {
    properties_ = img::Metadata::read(url_);
    info_ = readInfo(properties_);
    orientation_ = properties_.orientation();
    if (hasRawExtension(url_)) openRaw();
    if (!isRAW_) openPlain();
    if (isRAW_) learnCameraLook();
}

ImageSource::~ImageSource() = default;

void ImageSource::openRaw() {
    try {
        raw_ = img::RawDecoder::open(url_);
    } catch (const img::DecodeError&) {
        raw_.reset();
    }
    if (!raw_) return;  // not a RAW LibRaw knows: perhaps a plain image with a RAW name
    isRAW_ = true;
    const img::RawFacts& f = raw_->facts();
    fullSize_ = {f.width, f.height};
    orientation_ = f.orientation;
    const img::TemperatureTint asShot = img::temperatureTint(f.calibration, f.asShotMultipliers);
    asShotTemperature_ = asShot.temperature;
    asShotTint_ = asShot.tint;
    const NoiseDefaults decoder = decoderNoiseDefaults(f.iso);
    rawNoiseDefaults_ = {std::min(decoder.luma * 1.75f, 1.0f), std::max(decoder.color, 0.9f)};
    lensShot_ = {f.make, f.model, f.lens, f.focalLength, f.aperture, 1000};
    lensProfile_ = img::LensProfile::find(lensShot_);
    lensProfileSupported_ = lensProfile_.has_value();
    lensProfileDefault_ = lensProfileSupported_;
}

void ImageSource::openPlain() {
    try {
        std::vector<uint8_t> bytes = img::readFileBytes(url_);
        const img::ImageHeader header = img::readImageHeader(bytes);
        decodedUpright_ = header.upright;
        plainKind_ = header.kind;
        openedBytes_ = std::move(bytes);
        const bool swap = !header.upright && img::swapsAxes(orientation_);
        fullSize_ =
            swap ? PixelSize{header.height, header.width} : PixelSize{header.width, header.height};
    } catch (const img::DecodeError&) {
        throw ImageSourceError(url_);
    }
}

void ImageSource::learnCameraLook() {
    // Learnt once at opening, against the default record's development (as-shot white balance,
    // its noise reduction and lens profile: what the pipeline feeds the cube) made only as large
    // as the fit compares. A failure leaves the photo with the plain look.
    std::vector<uint8_t> jpeg;
    try {
        jpeg = CameraLook::embeddedJPEG(url_, raw_.get());
    } catch (const std::exception&) {
    }
    if (jpeg.empty()) return;
    const double s = std::min(1.0, double(CameraLook::kSampleLongEdge) / fullSize_.longEdge());
    const PixelSize sample{std::max(1, int(std::lround(fullSize_.width * s))),
                           std::max(1, int(std::lround(fullSize_.height * s)))};
    // As developRaw, except for the shrink: a Lanczos pass straight from the half-size
    // development would cost more than everything else here together.
    const auto develop = [&] {
        const RawKey key = keyOf(Adjustments{});
        const bool half = sample.longEdge() * 2 <= fullSize_.longEdge();
        img::Image image = raw_->develop(raw_->facts().asShotMultipliers, half);
        ++decodes_;
        image = img::shrinkTo(image, sample.width, sample.height, 2.0);
        return image.empty() ? image : finishDevelopment(image, key);
    };
    // The JPEG decodes while the sensor data is unpacked and developed; both take about as long.
    img::Image camera, plain;
    img::parallelFor(0, 2, {}, [&](int first, int last) {
        for (int job = first; job < last; ++job) {
            try {
                if (job == 0)
                    camera = CameraLook::decodeEmbedded(jpeg, orientation_);
                else
                    plain = develop();
            } catch (const std::exception&) {  // a worker thread must not throw
            }
        }
    });
    try {
        const CameraLook::Fit fit = CameraLook::fit(plain, camera);
        if (!fit.lut) return;
        std::lock_guard lock(mutex_);
        cameraLUT_ = fit.lut;
        cameraLookFit_ = LookFit{fit.before, fit.error};
    } catch (const std::exception&) {
    }
}

std::optional<std::chrono::system_clock::time_point> ImageSource::captureDate() const {
    return ql::captureDate(properties_);
}

img::CubeData ImageSource::cameraLUT() const {
    std::lock_guard lock(mutex_);
    return cameraLUT_;
}

std::optional<ImageSource::LookFit> ImageSource::cameraLookFit() const {
    std::lock_guard lock(mutex_);
    return cameraLookFit_;
}

PixelSize ImageSource::proxySize() const {
    const double s = std::min(1.0, double(previewLongEdge_) / fullSize_.longEdge());
    return {std::max(1, int(std::lround(fullSize_.width * s))),
            std::max(1, int(std::lround(fullSize_.height * s)))};
}

img::Image ImageSource::developRaw(const RawKey& key, PixelSize target, std::string* error) {
    const img::RawFacts& f = raw_->facts();
    // The as-shot white balance keeps the camera's own multipliers exactly.
    const bool asShot = key.temp == asShotTemperature_ && key.tint == asShotTint_;
    const std::array<double, 3> m =
        asShot ? f.asShotMultipliers : img::multipliers(f.calibration, {key.temp, key.tint});
    // Half size when it still covers the target: a quarter of the work and no demosaicing.
    const bool half = target.longEdge() * 2 <= fullSize_.longEdge();
    img::Image image;
    try {
        image = raw_->develop(m, half);
        ++decodes_;
    } catch (const img::DecodeError& e) {
        if (error) *error = e.what();
        return {};
    }
    if (image.empty()) return {};
    if (image.width() != target.width || image.height() != target.height)
        image = img::resize(image, target.width, target.height);
    return finishDevelopment(image, key);
}

img::Image ImageSource::finishDevelopment(const img::Image& developed, const RawKey& key) const {
    const float n = float(std::clamp(key.nr / 100, 0.0, 1.0));
    const img::RawNoiseReductionParams nr{
        rawNoiseDefaults_.luma + (1 - rawNoiseDefaults_.luma) * n,
        rawNoiseDefaults_.color + (1 - rawNoiseDefaults_.color) * n,
        float(developed.longEdge()) / float(fullSize_.longEdge())};
    img::Image image = img::rawNoiseReduction(developed, nr);
    if (lensProfile_ && key.lens.value_or(lensProfileDefault_)) {
        img::LensCorrectionParams lens;
        lens.profile = &*lensProfile_;
        lens.shot = lensShot_;
        image = img::lensCorrection(image, lens);
    }
    return image;
}

img::Image ImageSource::decodePlain(int atLeastLongEdge, std::string* error) {
    try {
        // The first decode uses the bytes read at opening; later ones read the file again
        // rather than hold a copy of it for as long as the photo is open.
        std::vector<uint8_t> bytes;
        {
            std::lock_guard lock(bytesMutex_);
            bytes.swap(openedBytes_);
        }
        if (bytes.empty()) bytes = img::readFileBytes(url_);
        img::Image image = img::decodeImage(bytes, atLeastLongEdge);
        ++decodes_;
        return decodedUpright_ ? image : img::orient(image, orientation_);
    } catch (const img::DecodeError& e) {
        if (error) *error = e.what();
        return {};
    } catch (const std::bad_alloc&) {
        if (error) *error = "not enough memory for this picture";
        return {};
    }
}

RawKey ImageSource::keyOf(const Adjustments& adjustments) const {
    return RawKey::of(adjustments, asShotTemperature_, asShotTint_);
}

img::Image ImageSource::previewBase(const Adjustments& adjustments) {
    std::lock_guard lock(mutex_);
    if (!isRAW_) {
        if (nonRAWPreview_.empty()) {
            // A DCT-scaled decode is softer than a Lanczos shrink and would make the preview
            // differ from a shrunk export; at twice the size, Lanczos does the real shrinking.
            img::Image image = decodePlain(2 * previewLongEdge_, nullptr);
            const PixelSize target = proxySize();
            if (!image.empty() &&
                (image.width() != target.width || image.height() != target.height))
                image = img::resize(image, target.width, target.height);
            nonRAWPreview_ = image;
        }
        return nonRAWPreview_;
    }
    const RawKey key = keyOf(adjustments);
    if (previewBaseCache_ && previewBaseCache_->first == key) return previewBaseCache_->second;
    img::Image image = developRaw(key, proxySize(), nullptr);
    if (!image.empty()) previewBaseCache_ = {key, image};
    return image;
}

img::Image ImageSource::fullBase(const Adjustments& adjustments, std::string* error) {
    if (!isRAW_) return decodePlain(0, error);
    return developRaw(keyOf(adjustments), fullSize_, error);
}

img::Image ImageSource::reducedBase(const Adjustments& adjustments, int atLeastLongEdge,
                                    std::string* error) {
    if (!isRAW_) return decodePlain(std::max(atLeastLongEdge, 1), error);
    if (atLeastLongEdge * 2 > fullSize_.longEdge()) return fullBase(adjustments, error);
    return developRaw(keyOf(adjustments), {fullSize_.width / 2, fullSize_.height / 2}, error);
}

img::Image ImageSource::fullBaseCached(const Adjustments& adjustments) {
    const RawKey key = keyOf(adjustments);
    {
        std::lock_guard lock(mutex_);
        for (auto it = fullCache_.begin(); it != fullCache_.end(); ++it)
            if (it->first == key) {
                fullCache_.splice(fullCache_.begin(), fullCache_, it);
                return it->second;
            }
    }
    img::Image image = fullBase(adjustments);
    if (image.empty()) return image;
    std::lock_guard lock(mutex_);
    fullCache_.emplace_front(key, image);
    while (fullCache_.size() > 2)
        fullCache_.pop_back();
    return image;
}

std::optional<std::vector<uint8_t>> ImageSource::unchangedJpeg(const img::JpegWriteOptions& options,
                                                               const img::Execution& exec) {
    if (isRAW_ || plainKind_ != img::FileKind::jpeg) return std::nullopt;
    try {
        std::vector<uint8_t> bytes;
        {
            std::lock_guard lock(bytesMutex_);
            bytes = openedBytes_;
        }
        if (bytes.empty()) bytes = img::readFileBytes(url_);
        return img::reencodeJpeg(bytes, orientation_, options, exec);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<img::TemperatureTint> ImageSource::rawNeutral(
    const std::function<img::Image(const img::Image&)>& prepare,
    const std::function<std::array<double, 3>(const img::Image&)>& measure) {
    if (!isRAW_) return std::nullopt;
    const img::RawFacts& f = raw_->facts();
    const double longEdge = fullSize_.longEdge();
    const PixelSize small{
        std::max(1, int(std::lround(fullSize_.width * std::min(1.0, 480 / longEdge)))),
        std::max(1, int(std::lround(fullSize_.height * std::min(1.0, 480 / longEdge))))};
    const auto errors = [&](double mired, double tint) -> std::optional<std::array<double, 2>> {
        const double kelvin = 1e6 / mired;
        img::Image image;
        try {
            image = raw_->develop(img::multipliers(f.calibration, {kelvin, tint}), true);
            ++decodes_;
        } catch (const img::DecodeError&) {
            return std::nullopt;
        }
        if (image.empty()) return std::nullopt;
        image = img::resize(image, small.width, small.height);
        if (prepare) image = prepare(image);
        if (image.empty()) return std::nullopt;
        std::array<double, 3> rgb = measure(image);
        for (double& c : rgb)
            c = std::isfinite(c) ? std::max(c, 1e-5) : 1e-5;
        return std::array<double, 2>{std::log(rgb[0] / rgb[2]),
                                     std::log(rgb[1] * rgb[1] / (rgb[0] * rgb[2]))};
    };
    double mired = 1e6 / std::max(asShotTemperature_, 1000.0);
    double tint = asShotTint_;
    for (int pass = 0; pass < 8; ++pass) {
        const auto e = errors(mired, tint);
        if (!e) return std::nullopt;
        if (std::abs((*e)[0]) < 0.01 && std::abs((*e)[1]) < 0.01) break;
        const auto warmer = errors(mired + 5, tint);
        const auto tinted = errors(mired, tint + 4);
        if (!warmer || !tinted) return std::nullopt;
        const double slopeT = ((*warmer)[0] - (*e)[0]) / 5;
        const double slopeN = ((*tinted)[1] - (*e)[1]) / 4;
        const double limit = pass == 0 ? 80 : 40;
        if (std::abs(slopeT) > 1e-9) mired -= std::clamp((*e)[0] / slopeT, -limit, limit);
        if (std::abs(slopeN) > 1e-9) tint -= std::clamp((*e)[1] / slopeN, -limit, limit);
        tint = std::clamp(tint, -150.0, 150.0);
        mired = 1e6 / std::max(1e6 / std::max(mired, 1.0), 500.0);
    }
    return img::TemperatureTint{1e6 / mired, tint};
}

}  // namespace ql
