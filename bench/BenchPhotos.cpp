#include "BenchPhotos.h"

#include <cstdio>

#include "imaging/codec/JpegCodec.h"
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
    testing::writeDngOfScene(dng, scene, 800);
    std::printf("JPEG %.1f MB, DNG %.1f MB\n\n", std::filesystem::file_size(jpeg) / 1e6,
                std::filesystem::file_size(dng) / 1e6);
    return files;
}

}  // namespace ql::bench
