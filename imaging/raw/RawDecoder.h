// RAW files through LibRaw: what the file says about itself, and demosaiced linear sRGB at full
// or half resolution under any white balance, upright.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "WhiteBalance.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img {

struct RawFacts {
    int width = 0, height = 0;                         // the whole picture, upright
    int orientation = 1;                               // EXIF-style, 1 to 8
    std::array<double, 3> asShotMultipliers{1, 1, 1};  // R, G, B with G = 1
    CameraCalibration calibration;
    std::string make, model, lens;
    double focalLength = 0, aperture = 0;
    int iso = 0;
};

/// One opened RAW file. The sensor data is read once, on the first decode, and kept, so that
/// later decodes (another white balance, the full size after the proxy) only develop it again.
/// Calls are serialised: LibRaw keeps its working state in the object.
class RawDecoder {
  public:
    /// The decoder, or nullptr when LibRaw doesn't recognise the file as RAW. Throws DecodeError
    /// for a RAW file whose header claims more pixels than we open.
    static std::unique_ptr<RawDecoder> open(const std::string& path);
    ~RawDecoder();

    const RawFacts& facts() const { return facts_; }

    /// Demosaiced, white-balanced by `multipliers` (R, G, B; any scale), in linear sRGB with the
    /// sensor's white level at 1, upright. `halfSize` develops each 2×2 block of sensor sites as
    /// one pixel: four times less work, for proxies. Throws DecodeError for damaged sensor data.
    Image develop(const std::array<double, 3>& multipliers, bool halfSize,
                  const Execution& exec = {});

    /// The camera's embedded JPEG preview, the largest the file holds; empty when there is none.
    std::vector<uint8_t> embeddedJpeg();

  private:
    RawDecoder();
    struct Impl;
    std::unique_ptr<Impl> impl_;
    RawFacts facts_;
    std::mutex mutex_;
};

}  // namespace ql::img
