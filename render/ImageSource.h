// One opened photograph: its metadata, a small proxy for the editor, the full picture for
// export, and the RAW decoder kept open between the two.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "PhotoInfo.h"
#include "RawKey.h"
#include "edit/Adjustments.h"
#include "imaging/ColorCube.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"
#include "imaging/codec/FileKind.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/Metadata.h"
#include "imaging/raw/LensCorrection.h"
#include "imaging/raw/WhiteBalance.h"
#include "people/FaceMasks.h"

namespace ql {

namespace img {
class RawDecoder;
}

/// The file is missing, unreadable, or decodes as nothing.
class ImageSourceError : public std::runtime_error {
  public:
    explicit ImageSourceError(const std::string& path);
};

struct PixelSize {
    int width = 0, height = 0;
    int longEdge() const { return width > height ? width : height; }
    bool operator==(const PixelSize&) const = default;
};

class ImageSource {
  public:
    /// Opens the file: reads its metadata and enough of its pixels to know it decodes. Throws
    /// ImageSourceError when nothing decodes.
    ImageSource(std::string path, int previewLongEdge);
    ~ImageSource();
    ImageSource(const ImageSource&) = delete;
    ImageSource& operator=(const ImageSource&) = delete;

    int previewLongEdge() const { return previewLongEdge_; }
    const std::string& url() const { return url_; }
    bool isRAW() const { return isRAW_; }
    /// The whole picture's size, upright.
    PixelSize fullSize() const { return fullSize_; }
    /// The decoder's neutral as opened, in kelvin and tint; 0 for a non-RAW file.
    double asShotTemperature() const { return asShotTemperature_; }
    double asShotTint() const { return asShotTint_; }
    const PhotoInfo& info() const { return info_; }
    /// The EXIF orientation, 1 when absent or out of range.
    int orientation() const { return orientation_; }
    /// The file's whole metadata, for the exporter.
    const img::Metadata& properties() const { return properties_; }
    std::optional<std::chrono::system_clock::time_point> captureDate() const;

    struct NoiseDefaults {
        float luma = 0, color = 0;
    };
    NoiseDefaults rawNoiseDefaults() const { return rawNoiseDefaults_; }
    bool lensProfileSupported() const { return lensProfileSupported_; }
    bool lensProfileDefault() const { return lensProfileDefault_; }

    /// The camera's own rendering learnt from its embedded JPEG: a 17-point cube, and the colour
    /// error before and after the fit. Absent until learnt.
    img::CubeData cameraLUT() const;
    struct LookFit {
        double before = 0, after = 0;
    };
    std::optional<LookFit> cameraLookFit() const;

    /// The proxy (long edge previewLongEdge, never enlarged), developed under the edit's RAW white
    /// balance, RAW noise reduction and lens profile. The last development is cached by RawKey, so
    /// other sliders cost no decode. Empty when the pixels can't be decoded.
    img::Image previewBase(const Adjustments& adjustments);
    /// The whole picture under the same four settings; not cached. Empty on failure; `error`
    /// then says why.
    img::Image fullBase(const Adjustments& adjustments, std::string* error = nullptr);
    /// As fullBase, at the smallest size the decoder makes cheaply whose long edge is still at
    /// least `atLeastLongEdge`: the half-size RAW development, a DCT-scaled JPEG decode; otherwise
    /// the whole picture. For exports that are delivered smaller than the photo.
    img::Image reducedBase(const Adjustments& adjustments, int atLeastLongEdge,
                           std::string* error = nullptr);
    /// As fullBase, remembering the two most recently used keys.
    img::Image fullBaseCached(const Adjustments& adjustments);
    /// The whole picture, upright, encoded as a JPEG straight from the file's own 8-bit samples:
    /// for an edit that changes no pixel, the file that decoding to the engine's pixels and
    /// encoding them would give, at a fraction of the work. Nullopt unless the photo is a JPEG
    /// in sRGB, and when decoding fails or `exec` is cancelled (fullBase then tells why).
    std::optional<std::vector<uint8_t>> unchangedJpeg(const img::JpegWriteOptions& options,
                                                      const img::Execution& exec = {});

    /// The RAW white balance that makes a measured patch neutral: `prepare` turns a decode
    /// (at most 480 pixels long) into what is measured, `measure` gives its mean r, g, b.
    /// Absent for a non-RAW file or when nothing decodes.
    std::optional<img::TemperatureTint> rawNeutral(
        const std::function<img::Image(const img::Image&)>& prepare,
        const std::function<std::array<double, 3>(const img::Image&)>& measure);

    /// The people in the photo as a soft mask the size of `matching` (a base of this photo at any
    /// scale), fitted and feathered. Found once per open photo, and so is their absence.
    std::optional<img::Image> personMask(const img::Image& matching);
    /// The share of the picture that people cover (the mask as found, before it is fitted);
    /// nothing when no people are seen.
    std::optional<double> personCoverage(const img::Image& matching);
    /// The face masks at the size of `matching`: the skin discs, and with `parts` every finer mask
    /// and what was measured. `only` (fractions of the frame) keeps the faces near those points.
    /// Faces are found once per open photo; nothing when there are none.
    std::optional<FaceMasks> faceMask(const img::Image& matching, bool parts,
                                      const std::vector<NPoint>& only = {});
    /// The boxes of the sure faces (confidence 0.6 and above), normalised, origin top left; found
    /// once per open photo, on `matching` the first time anything about people is asked.
    std::vector<vision::Rect> faceBoxes(const img::Image& matching);
    /// The pipeline's entries: the person mask, and the face masks, only where the edit uses them.
    /// The person mask is never larger than it was found: the pipeline stretches it over a larger
    /// picture as it blends, as enlarging it here would, without a full-size mask in memory.
    img::Image maskIfNeeded(const Adjustments& adjustments, const img::Image& matching);
    std::optional<FaceMasks> facesIfNeeded(const Adjustments& adjustments,
                                           const img::Image& matching);
    /// How many times the photo was searched for faces or people: what the caches save.
    int peopleAnalyses() const { return peopleAnalyses_.load(); }

    /// How many times pixels were decoded from the file (every RAW development, every non-RAW
    /// decode): what the caches save is visible here.
    int decodeCount() const { return decodes_.load(); }

  private:
    void openRaw();
    void openPlain();
    void learnCameraLook();
    img::Image developRaw(const RawKey& key, PixelSize target, std::string* error);
    /// The RAW noise reduction and lens profile of `key` on a development, at its own scale.
    img::Image finishDevelopment(const img::Image& developed, const RawKey& key) const;
    img::Image decodePlain(int atLeastLongEdge, std::string* error);
    PixelSize proxySize() const;
    RawKey keyOf(const Adjustments& adjustments) const;
    /// personMask, or with `atMostFound` no larger than the mask was found at.
    std::optional<img::Image> fittedPersonMask(const img::Image& matching, bool atMostFound);

    int previewLongEdge_;
    std::string url_;
    bool isRAW_ = false;
    PixelSize fullSize_;
    double asShotTemperature_ = 0, asShotTint_ = 0;
    PhotoInfo info_;
    int orientation_ = 1;
    img::Metadata properties_;
    NoiseDefaults rawNoiseDefaults_;
    bool lensProfileSupported_ = false, lensProfileDefault_ = false;
    std::optional<img::LensProfile> lensProfile_;
    img::LensShot lensShot_;
    bool decodedUpright_ = false;  // the plain decoder applies the orientation itself
    img::FileKind plainKind_ = img::FileKind::unknown;
    std::mutex bytesMutex_;
    std::vector<uint8_t> openedBytes_;  // a plain file's bytes, until its first decode

    std::unique_ptr<img::RawDecoder> raw_;
    mutable std::mutex mutex_;  // guards everything below
    img::CubeData cameraLUT_;
    std::optional<LookFit> cameraLookFit_;
    std::optional<std::pair<RawKey, img::Image>> previewBaseCache_;
    img::Image nonRAWPreview_;
    std::list<std::pair<RawKey, img::Image>> fullCache_;
    std::atomic<int> decodes_{0};

    struct PeopleCache;
    PeopleCache& people();
    /// Finds the person mask once; the caller holds peopleMutex_.
    void searchPeople(const img::Image& matching);
    std::mutex peopleMutex_;               // guards people_; held while people are analysed
    std::shared_ptr<PeopleCache> people_;  // shared: the type is complete only where it is used
    std::atomic<int> peopleAnalyses_{0};
};

/// Lower-case extensions of the RAW formats; a file with one of them is offered to the RAW
/// decoder first.
bool hasRawExtension(const std::string& path);

}  // namespace ql
