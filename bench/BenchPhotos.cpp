#include "BenchPhotos.h"

#include <algorithm>
#include <cstdio>

#include "imaging/codec/JpegCodec.h"
#include "imaging/raw/WhiteBalance.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Mosaic.h"

namespace ql::bench {

BenchPhotos writeBenchPhotos(const std::filesystem::path& dir) {
    constexpr int kWidth = 6000, kHeight = 4000;
    BenchPhotos files{(dir / "mosaic24.jpg").string(), (dir / "mosaic24.dng").string()};
    const std::string& jpeg = files.jpeg;
    const std::string& dng = files.dng;
    std::printf("writing a %dx%d JPEG and DNG from the sample shoot...\n", kWidth, kHeight);
    const img::Image scene =
        testing::sampleMosaic(kWidth, kHeight,
                              {"iphone7.heic", "party_crowd_indoor.jpg",
                               "three_men_night_flash.jpg", "event_hall_group.jpg"});
    img::writeJpeg(scene, jpeg, img::JpegWriteOptions{92, {}, {}});
    // The DNG's camera: published matrices of a 24-megapixel-class APS-C body, lit by D65.
    testing::DngSpec spec = testing::apscCameraSpec(kWidth, kHeight);
    spec.iso = 800;
    const img::CameraCalibration cal{*spec.colorMatrix2, 6504, spec.colorMatrix1, 2856};
    spec.asShotNeutral = img::cameraNeutral(cal, img::kD65White);
    // Linear sRGB to XYZ (D65), then the camera's own matrix.
    const double toXyz[9] = {0.4124564, 0.3575761, 0.1804375, 0.2126729, 0.7151522,
                             0.0721750, 0.0193339, 0.1191920, 0.9503041};
    double m[9] = {};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k)
                m[r * 3 + c] += (*spec.colorMatrix2)[size_t(r * 3 + k)] * toXyz[k * 3 + c];
    const double scale =
        0.9 / std::max({spec.asShotNeutral[0], spec.asShotNeutral[1], spec.asShotNeutral[2]});
    testing::writeDng(dng, spec, [&](int x, int y) {
        const img::Pixel p = scene.at(x, y);
        std::array<float, 3> cam{};
        for (int r = 0; r < 3; ++r)
            cam[size_t(r)] =
                float(scale * (m[r * 3] * p.r + m[r * 3 + 1] * p.g + m[r * 3 + 2] * p.b));
        return cam;
    });
    std::printf("JPEG %.1f MB, DNG %.1f MB\n\n", std::filesystem::file_size(jpeg) / 1e6,
                std::filesystem::file_size(dng) / 1e6);
    return files;
}

}  // namespace ql::bench
