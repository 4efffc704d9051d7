#include "vision/FaceQuality.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "imaging/ExposureAdjust.h"
#include "imaging/GaussianBlur.h"
#include "imaging/codec/ImageDecode.h"
#include "tests/support/Fixtures.h"

namespace ql::vision {
namespace {

constexpr double photoWidth = 1600, photoHeight = 1200;

const img::Image& threeMen() {
    static const img::Image image = img::decodeImage(
        ql::testing::readBytes(std::string(QL_SAMPLES_DIR) + "/three_men_night_flash.jpg"));
    return image;
}

// A detection as the face detector reports it, from pixel positions read off the photo: the box,
// then the eyes (image left, image right), nose tip and mouth.
DetectedFace face(Rect box, Point eyeLeft, Point eyeRight, Point nose, Point mouth) {
    auto n = [](Point p) { return Point{p.x / photoWidth, p.y / photoHeight}; };
    DetectedFace f;
    f.box = {box.x / photoWidth, box.y / photoHeight, box.width / photoWidth,
             box.height / photoHeight};
    f.confidence = 0.9f;
    const double earY = (eyeLeft.y + eyeRight.y) / 2;
    f.keypoints = {n(eyeLeft), n(eyeRight),      n(nose),
                   n(mouth),   n({box.x, earY}), n({box.maxX(), earY})};
    return f;
}

const std::vector<DetectedFace>& faces() {
    static const std::vector<DetectedFace> list = {
        face({535, 326, 90, 90}, {561, 353}, {591, 360}, {580, 374}, {578, 395}),
        face({783, 385, 90, 90}, {811, 415}, {843, 414}, {823, 430}, {825, 450}),
        face({1002, 266, 90, 90}, {1031, 299}, {1064, 292}, {1049, 314}, {1050, 335}),
    };
    return list;
}

TEST(FaceQuality, BlurDarknessAndSmallSizeEachLowerTheScore) {
    const Bitmap sharp = Bitmap::of(threeMen());
    const Bitmap blurred = Bitmap::of(img::gaussianBlur(threeMen(), {2.0f}));
    const Bitmap dark = Bitmap::of(img::exposureAdjust(threeMen(), {-3.0f}));
    const Bitmap tiny = Bitmap::of(threeMen(), 480);  // faces about 27 px wide
    for (const DetectedFace& f : faces()) {
        SCOPED_TRACE(f.box.x);
        const double good = FaceQuality::score(sharp, f);
        EXPECT_GT(good, 0.5);
        EXPECT_LE(good, 1.0);
        EXPECT_LT(FaceQuality::score(blurred, f), good - 0.2);
        EXPECT_LT(FaceQuality::score(dark, f), good - 0.1);
        EXPECT_LT(FaceQuality::score(tiny, f), good - 0.1);
    }
}

TEST(FaceQuality, TurnedOrTiltedFacesScoreLower) {
    const Bitmap bitmap = Bitmap::of(threeMen());
    const DetectedFace frontal = faces()[1];
    const double good = FaceQuality::score(bitmap, frontal);

    // The nose far out towards one eye: a head turned to the side.
    DetectedFace turned = frontal;
    turned.keypoints[2].x =
        turned.keypoints[1].x + 0.2 * (turned.keypoints[1].x - turned.keypoints[0].x);
    EXPECT_LT(FaceQuality::score(bitmap, turned), good - 0.1);

    // The eye line at 45 degrees.
    DetectedFace tilted = frontal;
    const double eyes = (frontal.keypoints[1].x - frontal.keypoints[0].x) * photoWidth;
    tilted.keypoints[1].y = frontal.keypoints[0].y + eyes / photoHeight;
    EXPECT_LT(FaceQuality::score(bitmap, tilted), good - 0.05);

    // Eyes close together for the box: one of them hidden.
    DetectedFace profile = frontal;
    profile.keypoints[1].x = profile.keypoints[0].x + 0.08 * profile.box.width;
    profile.keypoints[2].x = profile.keypoints[1].x;
    EXPECT_LT(FaceQuality::score(bitmap, profile), 0.2);
}

TEST(FaceQuality, BadInputScoresZero) {
    const Bitmap bitmap = Bitmap::of(threeMen(), 800);
    DetectedFace f = faces()[0];
    EXPECT_GT(FaceQuality::score(bitmap, f), 0.0);

    DetectedFace outside = f;
    outside.box.x = 1.2;
    EXPECT_EQ(FaceQuality::score(bitmap, outside), 0.0);
    DetectedFace empty = f;
    empty.box.width = 0;
    EXPECT_EQ(FaceQuality::score(bitmap, empty), 0.0);
    DetectedFace notANumber = f;
    notANumber.box.y = NAN;
    EXPECT_EQ(FaceQuality::score(bitmap, notANumber), 0.0);

    const Bitmap one{1, 1, {128, 128, 128}};
    EXPECT_EQ(FaceQuality::score(one, {{0, 0, 1, 1}, 0.9f, {}}), 0.0);
    EXPECT_EQ(FaceQuality::score(Bitmap{}, f), 0.0);

    // Keypoints all at one spot: judged on the rest, no crash.
    DetectedFace noKeypoints = f;
    noKeypoints.keypoints = {};
    const double s = FaceQuality::score(bitmap, noKeypoints);
    EXPECT_GT(s, 0.0);
    EXPECT_LE(s, 1.0);
}

}  // namespace
}  // namespace ql::vision
