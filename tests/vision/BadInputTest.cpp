// What people analysis does with input nobody should give it: a damaged model file among good
// ones, and a picture far larger than any camera's.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "imaging/codec/ImageDecode.h"
#include "tests/support/Fixtures.h"
#include "vision/BodyPose.h"
#include "vision/FaceDetector.h"
#include "vision/FaceParts.h"
#include "vision/Models.h"
#include "vision/PersonMask.h"

namespace ql::vision {
namespace {

namespace fs = std::filesystem;

const img::Image& men() {
    static const img::Image image =
        img::decodeImage(testing::readBytes(QL_SAMPLES_DIR "/three_men_night_flash.jpg"));
    return image;
}

TEST(VisionBadInput, ADamagedFaceModelTurnsOffFacesOnlyWithOneLogLine) {
    struct Restore {
        ~Restore() { setModelFolder({}); }
    } restore;
    testing::TempDir folder;
    for (const auto& entry : fs::directory_iterator(modelFolder()))
        fs::copy(entry.path(), folder.path() / entry.path().filename());
    // Half a file, as an interrupted copy leaves it.
    const fs::path detector = folder.path() / fileName(ModelFile::faceDetector);
    fs::resize_file(detector, fs::file_size(detector) / 2);
    setModelFolder(folder.path().string());

    const Bitmap bitmap = Bitmap::of(men(), 1600);
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(FaceDetector::find(bitmap).empty());
    EXPECT_TRUE(FaceDetector::find(bitmap).empty());
    EXPECT_TRUE(FaceParts::detect(bitmap).empty());
    const std::string log = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1) << log;
    EXPECT_NE(log.find(fileName(ModelFile::faceDetector)), std::string::npos) << log;

    // The rest still sees the three men.
    EXPECT_GE(BodyPose::detect(bitmap).size(), 3u);
    const auto mask = PersonMask::compute(men());
    ASSERT_TRUE(mask);
    EXPECT_GT(PersonMask::coverage(*mask), 0.1);
}

TEST(VisionBadInput, AHugePictureIsAnalysedFromASmallCopy) {
    // 20000 × 15000 is 4.8 GB of pixels; untouched, they cost no memory, and the analysis must
    // not make a copy of that size either.
    const img::Image huge(20000, 15000);
    const Bitmap bitmap = Bitmap::of(huge, 2048);
    EXPECT_EQ(bitmap.longEdge(), 2048);
    EXPECT_TRUE(FaceDetector::detect(huge).empty());
    EXPECT_TRUE(FaceParts::detect(bitmap).empty());
    EXPECT_TRUE(BodyPose::detect(bitmap).empty());
    const auto mask = PersonMask::compute(huge);
    EXPECT_TRUE(!mask || PersonMask::coverage(*mask) < 0.01);
}

}  // namespace
}  // namespace ql::vision
