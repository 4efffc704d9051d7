#include "render/PhotoInfo.h"

#include <exiv2/exiv2.hpp>

#include <cmath>
#include <ctime>
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono;
using ql::img::Metadata;

#ifdef QL_SAMPLES_DIR
const fs::path kSamples = QL_SAMPLES_DIR;
#else
const fs::path kSamples = fs::path(__FILE__).parent_path() / "../../resources/samples";
#endif

// A tiny JPEG holding the given tags (text in each tag's standard type, "28/10"
// for rationals).
Metadata tagged(const std::vector<std::pair<std::string, std::string>>& tags) {
    const ql::testing::TempDir dir;
    const std::string path = dir.file("tagged.jpg");
    ql::testing::writeBytes(path, ql::testing::encodeJpeg(16, 8, ql::testing::quadrantRGB(16, 8)));
    Metadata::read(path);  // sets Exiv2 up before it is used directly
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    for (const auto& [key, value] : tags)
        if (key.starts_with("Exif."))
            image->exifData()[key] = value;
        else
            image->xmpData()[key] = value;
    image->writeMetadata();
    return Metadata::read(path);
}

// The local calendar time of a time point.
std::tm local(system_clock::time_point t) {
    const std::time_t s = system_clock::to_time_t(t);
    std::tm tm{};
    localtime_r(&s, &tm);
    return tm;
}

TEST(PhotoInfo, DisplayForms) {
    EXPECT_EQ(ql::formatShutter(1.0 / 250), "1/250s");
    EXPECT_EQ(ql::formatShutter(1.0 / 3), "1/3s");
    EXPECT_EQ(ql::formatShutter(0.004), "1/250s");
    EXPECT_EQ(ql::formatShutter(0.5), "0.5s");
    EXPECT_EQ(ql::formatShutter(2.5), "2.5s");
    EXPECT_EQ(ql::formatShutter(30), "30.0s");
    EXPECT_EQ(ql::formatAperture(2.8), "f/2.8");
    EXPECT_EQ(ql::formatAperture(2.0 * std::sqrt(2.0)), "f/2.8");
    EXPECT_EQ(ql::formatFocal(50), "50mm");
    EXPECT_EQ(ql::formatFocal(18.5), "18.5mm");
    EXPECT_EQ(ql::formatFocal(173.0 / 32), "5.4mm");

    EXPECT_EQ(ql::cameraName("Canon", "Canon EOS 550D"), "Canon EOS 550D");
    EXPECT_EQ(ql::cameraName("NIKON CORPORATION", "NIKON D750"), "NIKON D750");
    EXPECT_EQ(ql::cameraName("EASTMAN KODAK COMPANY", "KODAK DX6490 ZOOM"), "KODAK DX6490 ZOOM");
    EXPECT_EQ(ql::cameraName("OLYMPUS IMAGING CORP.", "E-M5"), "OLYMPUS E-M5");
    EXPECT_EQ(ql::cameraName("Minolta Co., Ltd.", "DiMAGE 7"), "Minolta DiMAGE 7");
    EXPECT_EQ(ql::cameraName(" SONY ", "DSC-P52 "), "SONY DSC-P52");
    EXPECT_EQ(ql::cameraName("", "X100V"), "X100V");
    EXPECT_EQ(ql::cameraName("Leica", ""), "Leica");
    EXPECT_EQ(ql::cameraName(" ", ""), "");
}

TEST(PhotoInfo, ReadsExifValues) {
    const ql::PhotoInfo info =
        ql::readInfo(tagged({{"Exif.Image.Make", "Canon"},
                             {"Exif.Image.Model", "Canon EOS 550D"},
                             {"Exif.Photo.LensModel", "EF50mm f/1.8 STM"},
                             {"Exif.Photo.ExposureTime", "1/250"},
                             {"Exif.Photo.FNumber", "28/10"},
                             {"Exif.Photo.FocalLength", "50/1"},
                             {"Exif.Photo.ISOSpeedRatings", "3200"},
                             {"Exif.Photo.Flash", "25"},
                             {"Exif.Photo.ExposureProgram", "3"},
                             {"Exif.Photo.MeteringMode", "2"},
                             {"Exif.Photo.WhiteBalance", "1"},
                             {"Exif.Photo.ExposureBiasValue", "-2/3"},
                             {"Exif.Photo.DateTimeOriginal", "2021:06:15 14:30:05"},
                             {"Exif.Photo.SubSecTimeOriginal", "25"},
                             {"Exif.Photo.OffsetTimeOriginal", "+02:00"}}));
    EXPECT_EQ(info.camera, "Canon EOS 550D");
    EXPECT_EQ(info.lens, "EF50mm f/1.8 STM");
    EXPECT_EQ(info.shutter, "1/250s");
    EXPECT_DOUBLE_EQ(*info.shutterSeconds, 0.004);
    EXPECT_EQ(info.aperture, "f/2.8");
    EXPECT_EQ(info.focal, "50mm");
    EXPECT_EQ(info.iso, "ISO 3200");
    EXPECT_EQ(info.isoValue, 3200);
    EXPECT_EQ(info.flashFired, true);
    EXPECT_EQ(info.program, "Aperture priority");
    EXPECT_EQ(info.metering, "Centre-weighted");
    EXPECT_EQ(info.whiteBalanceManual, true);
    EXPECT_NEAR(*info.exposureBias, -2.0 / 3, 1e-9);
    EXPECT_EQ(info.captured, sys_days(2021y / 6 / 15) + 12h + 30min + 5s + 250ms);
}

TEST(PhotoInfo, FallbacksAndUnusableValues) {
    // APEX values, a lens's focal and aperture range, ISO beyond 65535, impossible dates
    // before a local one.
    const ql::PhotoInfo info =
        ql::readInfo(tagged({{"Exif.Photo.ShutterSpeedValue", "-4/3"},
                             {"Exif.Photo.ApertureValue", "3/1"},
                             {"Exif.Photo.LensSpecification", "18/1 55/1 35/10 56/10"},
                             {"Exif.Photo.ISOSpeedRatings", "65535"},
                             {"Exif.Photo.RecommendedExposureIndex", "102400"},
                             {"Exif.Photo.Flash", "16"},
                             {"Exif.Photo.ExposureProgram", "0"},
                             {"Exif.Photo.MeteringMode", "255"},
                             {"Exif.Photo.WhiteBalance", "0"},
                             {"Exif.Photo.DateTimeOriginal", "0000:00:00 00:00:00"},
                             {"Exif.Photo.DateTimeDigitized", "2020:02:30 10:00:00"},
                             {"Exif.Image.DateTime", "2019:12:31 23:59:59"}}));
    EXPECT_EQ(info.shutter, "2.5s");  // 2^(4/3) s
    EXPECT_EQ(info.aperture, "f/2.8");
    EXPECT_EQ(info.lens, "18-55mm f/3.5-5.6");
    EXPECT_EQ(info.iso, "ISO 102400");
    EXPECT_EQ(info.flashFired, false);
    EXPECT_EQ(info.program, std::nullopt);
    EXPECT_EQ(info.metering, "Other");
    EXPECT_EQ(info.whiteBalanceManual, false);
    EXPECT_EQ(info.camera, std::nullopt);
    ASSERT_TRUE(info.captured);
    const std::tm tm = local(*info.captured);
    EXPECT_EQ(tm.tm_year + 1900, 2019);
    EXPECT_EQ(tm.tm_mon + 1, 12);
    EXPECT_EQ(tm.tm_mday, 31);
    EXPECT_EQ(tm.tm_hour * 3600 + tm.tm_min * 60 + tm.tm_sec, 86399);

    // XMP only, as PNG and HEIF often carry it.
    const ql::PhotoInfo xmp =
        ql::readInfo(tagged({{"Xmp.tiff.Model", "X100V"},
                             {"Xmp.exif.ExposureTime", "1/60"},
                             {"Xmp.exif.FNumber", "2/1"},
                             {"Xmp.exif.DateTimeOriginal", "2022-03-04T05:06:07Z"}}));
    EXPECT_EQ(xmp.camera, "X100V");
    EXPECT_EQ(xmp.shutter, "1/60s");
    EXPECT_EQ(xmp.aperture, "f/2.0");
    EXPECT_EQ(xmp.captured, sys_days(2022y / 3 / 4) + 5h + 6min + 7s);

    const ql::PhotoInfo none = ql::readInfo(Metadata());
    EXPECT_FALSE(none.camera || none.shutter || none.iso || none.captured || none.flashFired);
}

TEST(PhotoInfo, CameraSamples) {
    if (!fs::exists(kSamples / "three_men_night_flash.jpg")) GTEST_SKIP() << "no samples";
    const ql::PhotoInfo canon =
        ql::readInfo(Metadata::read(kSamples / "three_men_night_flash.jpg"));
    EXPECT_EQ(canon.camera, "Canon DIGITAL IXUS 300");
    EXPECT_EQ(canon.lens, std::nullopt);  // the maker note's lens type is "n/a"
    EXPECT_EQ(canon.shutter, "1/125s");
    EXPECT_EQ(canon.aperture, "f/2.7");
    EXPECT_EQ(canon.focal, "5.4mm");
    EXPECT_EQ(canon.iso, std::nullopt);
    EXPECT_EQ(canon.flashFired, true);
    EXPECT_EQ(canon.metering, "Pattern");
    ASSERT_TRUE(canon.captured);
    EXPECT_EQ(local(*canon.captured).tm_hour, 23);

    const ql::PhotoInfo sony = ql::readInfo(Metadata::read(kSamples / "party_crowd_indoor.jpg"));
    EXPECT_EQ(sony.camera, "SONY DSC-P52");
    EXPECT_EQ(sony.iso, "ISO 250");
    EXPECT_EQ(sony.shutter, "1/40s");
    EXPECT_EQ(sony.program, "Program");
    EXPECT_EQ(sony.flashFired, true);  // 93: fired, auto, red-eye

    // Zeros where the camera had nothing to say, and blank dates.
    const ql::PhotoInfo dng = ql::readInfo(Metadata::read(kSamples / "colorchart_canon550d.dng"));
    EXPECT_EQ(dng.camera, "Canon EOS Kiss X4");
    EXPECT_FALSE(dng.shutter || dng.aperture || dng.focal || dng.iso || dng.program ||
                 dng.metering || dng.captured);
    EXPECT_EQ(ql::readInfo(Metadata::read(kSamples / "event_hall_group.jpg")).captured,
              std::nullopt);  // 0000:00:00 00:00:00
}

}  // namespace
