#include "vision/FaceDetector.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "imaging/codec/ImageDecode.h"
#include "tests/support/Fixtures.h"
#include "tests/vision/PartialModels.h"
#include "vision/FaceCascade.h"
#include "vision/Models.h"

namespace ql::vision {
namespace {

// The four people facing the camera in the cafe photo (3072 × 2304), boxes labelled by hand and
// normalised.
const Rect cafeFrontal[] = {{380 / 3072., 860 / 2304., 380 / 3072., 332 / 2304.},
                            {950 / 3072., 625 / 2304., 395 / 3072., 327 / 2304.},
                            {1747 / 3072., 557 / 2304., 408 / 3072., 310 / 2304.},
                            {2312 / 3072., 565 / 2304., 370 / 3072., 295 / 2304.}};

const img::Image& cafe() {
    static const img::Image image =
        img::decodeImage(testing::readBytes(QL_LABELLED_DIR "/group_cafe_indoor.jpg"));
    return image;
}

Bitmap crop(const Bitmap& b, int x, int y, int w, int h) {
    Bitmap out{w, h, std::vector<uint8_t>(size_t(w) * size_t(h) * 3)};
    for (int r = 0; r < h; ++r)
        std::copy_n(b.row(y + r) + size_t(x) * 3, size_t(w) * 3, out.row(r));
    return out;
}

double iou(const Rect& a, const Rect& b) {
    const double w = std::min(a.maxX(), b.maxX()) - std::max(a.x, b.x);
    const double h = std::min(a.maxY(), b.maxY()) - std::max(a.y, b.y);
    return w <= 0 || h <= 0 ? 0 : w * h / (a.width * a.height + b.width * b.height - w * h);
}

const DetectedFace* match(const std::vector<DetectedFace>& faces, const Rect& box) {
    for (const DetectedFace& f : faces)
        if (iou(f.box, box) > 0.5) return &f;
    return nullptr;
}

void expectInFrame(const Rect& box) {
    EXPECT_TRUE(box.x >= 0 && box.y >= 0 && box.maxX() <= 1 + 1e-6 && box.maxY() <= 1 + 1e-6)
        << box.x << "," << box.y << " " << box.width << "x" << box.height;
}

TEST(FaceDetector, FindsTheCafeFacesWithTheirKeypoints) {
    const std::vector<DetectedFace> faces = FaceDetector::find(Bitmap::of(cafe()), 0.6f);
    EXPECT_GE(faces.size(), 4u);
    EXPECT_LE(faces.size(), 6u);  // four frontal, two profiles behind
    EXPECT_TRUE(std::is_sorted(faces.begin(), faces.end(), [](const auto& a, const auto& b) {
        return a.confidence > b.confidence;
    }));
    for (size_t i = 0; i < faces.size(); ++i) {
        expectInFrame(faces[i].box);
        for (size_t j = i + 1; j < faces.size(); ++j)  // one detection per face
            EXPECT_LT(iou(faces[i].box, faces[j].box), 0.2);
    }
    for (const Rect& label : cafeFrontal) {
        const DetectedFace* f = match(faces, label);
        ASSERT_TRUE(f) << "no face at " << label.x;
        EXPECT_GT(f->confidence, 0.8f);
        for (size_t k = 0; k < 4; ++k)  // eyes, nose tip and mouth
            EXPECT_TRUE(f->box.contains(f->keypoints[k])) << k;
        EXPECT_LT(f->keypoints[0].x, f->keypoints[1].x);
        EXPECT_LT(f->keypoints[1].y, f->keypoints[2].y);
        EXPECT_LT(f->keypoints[2].y, f->keypoints[3].y);
        EXPECT_LT(f->keypoints[4].x, f->keypoints[5].x);
    }
}

TEST(FaceDetector, AScaledCopyGivesTheSameFaces) {
    const std::vector<Rect> boxes = FaceDetector::detect(cafe());
    const std::vector<DetectedFace> small = FaceDetector::find(Bitmap::of(cafe(), 900), 0.6f);
    EXPECT_EQ(boxes.size(), small.size());
    for (const Rect& label : cafeFrontal) {
        const auto big = std::find_if(boxes.begin(), boxes.end(),
                                      [&](const Rect& b) { return iou(b, label) > 0.5; });
        const DetectedFace* f = match(small, label);
        ASSERT_TRUE(big != boxes.end() && f) << label.x;
        EXPECT_GT(iou(*big, f->box), 0.8);
    }
}

TEST(FaceDetector, FindsNothingWhereThereAreNoFaces) {
    Bitmap shapes{1200, 800, std::vector<uint8_t>(1200 * 800 * 3)};  // a gradient and blocks
    for (int y = 0; y < 800; ++y)
        for (int x = 0; x < 1200; ++x) {
            const bool block = (x / 150 + y / 150) % 3 == 0 && x % 150 < 90;
            uint8_t* p = shapes.row(y) + x * 3;
            p[0] = uint8_t(block ? 40 : x * 255 / 1200),
            p[1] = uint8_t(block ? 200 : y * 255 / 800);
            p[2] = 128;
        }
    EXPECT_TRUE(FaceDetector::find(shapes, 0.6f).empty());
    // The cafe's table: glasses, cups, cutlery.
    EXPECT_TRUE(FaceDetector::find(crop(Bitmap::of(cafe()), 1100, 1700, 1900, 600), 0.6f).empty());

    EXPECT_TRUE(FaceDetector::find(Bitmap{}, 0.5f).empty());
    EXPECT_TRUE(FaceDetector::detect(img::Image{}).empty());
    EXPECT_TRUE(FaceDetector::find(Bitmap{1, 1, {200, 150, 120}}, 0.1f).empty());
    EXPECT_TRUE(FaceDetector::find(Bitmap{5000, 2, std::vector<uint8_t>(30000, 90)}).empty());
    EXPECT_TRUE(FaceDetector::find(Bitmap{500, 500, std::vector<uint8_t>(100)}).empty());
}

TEST(FaceDetector, AGreyFaceInAColourPhotoIsAPictureButAGreyPhotoKeepsItsFaces) {
    // The selfie's pencil sketch on the wall has every feature of a face but no skin colour.
    const Bitmap selfie = Bitmap::of(
        img::decodeImage(testing::readBytes(QL_LABELLED_DIR "/selfie_indoor.jpg")), 1600);
    const std::vector<DetectedFace> faces = FaceDetector::find(selfie, 0.5f);
    ASSERT_EQ(faces.size(), 1u);
    EXPECT_GT(iou(faces[0].box, {380 / 3264., 910 / 2448., 905 / 3264., 700 / 2448.}), 0.3);

    Bitmap grey = Bitmap::of(cafe(), 1600);
    for (size_t i = 0; i < grey.rgb.size(); i += 3) {
        const auto g =
            uint8_t((299 * grey.rgb[i] + 587 * grey.rgb[i + 1] + 114 * grey.rgb[i + 2]) / 1000);
        grey.rgb[i] = grey.rgb[i + 1] = grey.rgb[i + 2] = g;
    }
    const std::vector<DetectedFace> greyFaces = FaceDetector::find(grey, 0.6f);
    for (const Rect& label : cafeFrontal)
        EXPECT_TRUE(match(greyFaces, label)) << label.x;
}

TEST(FaceDetector, FacesCutByTheFrameEdgeStayInTheFrame) {
    // The woman on the left cut through her nose; a thin strip through two faces.
    const Bitmap bitmap = Bitmap::of(cafe());
    for (const Bitmap& cut : {crop(bitmap, 570, 600, 1400, 900), crop(bitmap, 0, 900, 3072, 60)})
        for (const DetectedFace& f : FaceDetector::find(cut, 0.3f))
            expectInFrame(f.box);
    // The other three are found whole.
    const std::vector<DetectedFace> faces = FaceDetector::find(crop(bitmap, 570, 0, 2502, 1500));
    for (const Rect& label : {cafeFrontal[1], cafeFrontal[2], cafeFrontal[3]}) {
        const Rect inPart = {(label.x * 3072 - 570) / 2502, label.y * 2304 / 1500,
                             label.width * 3072 / 2502, label.height * 2304 / 1500};
        EXPECT_TRUE(match(faces, inPart)) << label.x;
    }
}

TEST(FaceDetector, WithoutItsModelFindsNothing) {
    struct Restore {
        ~Restore() { setModelFolder({}); }
    } restore;
    testing::TempDir empty;
    const Bitmap bitmap = Bitmap::of(cafe(), 800);
    setModelFolder(empty.path().string());
    EXPECT_TRUE(FaceDetector::find(bitmap, 0.5f).empty());
    setModelFolder({});
    EXPECT_GE(FaceDetector::find(bitmap, 0.6f).size(),
              4u);  // back once the folder is
}

// Four blurred, dim faces of the party crowd (1632 × 1224) that BlazeFace barely sees and that are
// too small for HOG, labelled by hand; the last is turned away.
const Rect crowdFaint[] = {{208 / 1632., 554 / 1224., 54 / 1632., 62 / 1224.},
                           {1216 / 1632., 540 / 1224., 56 / 1632., 70 / 1224.},
                           {1570 / 1632., 537 / 1224., 55 / 1632., 55 / 1224.},
                           {350 / 1632., 770 / 1224., 66 / 1632., 70 / 1224.}};

TEST(FaceDetector, FaintCrowdFacesAreFoundWhereTheCascadeAgrees) {
    const Bitmap crowd =
        Bitmap::of(img::decodeImage(testing::readBytes(QL_SAMPLES_DIR "/party_crowd_indoor.jpg")));
    const std::vector<DetectedFace> faces = FaceDetector::find(crowd, 0.6f);
    for (const Rect& label : crowdFaint)
        EXPECT_TRUE(match(faces, label)) << label.x * 1632;
    for (size_t i = 0; i < faces.size(); ++i)
        for (size_t j = i + 1; j < faces.size(); ++j)
            EXPECT_LT(iou(faces[i].box, faces[j].box), 0.2);

    // Without the cascades' files the faint ones are lost and the clear ones stay.
    PartialModels withoutCascades({ModelFile::faceDetector});
    const std::vector<DetectedFace> fewer = FaceDetector::find(crowd, 0.6f);
    for (const Rect& label : crowdFaint)
        EXPECT_FALSE(match(fewer, label)) << label.x * 1632;
    EXPECT_GE(fewer.size(), 12u);
    EXPECT_EQ(fewer.size() + std::size(crowdFaint), faces.size());
}

TEST(FaceCascade, AgreesOnFacesTurnedEitherWayAndNotOnNothing) {
    const Bitmap bitmap = Bitmap::of(cafe(), 1600);
    const cv::Mat rgb(bitmap.height, bitmap.width, CV_8UC3,
                      const_cast<uint8_t*>(bitmap.rgb.data()));
    cv::Mat gray;
    cv::cvtColor(rgb, gray, cv::COLOR_RGB2GRAY);
    auto px = [&](const Rect& r) {
        return cv::Rect2f(float(r.x * gray.cols), float(r.y * gray.rows),
                          float(r.width * gray.cols), float(r.height * gray.rows));
    };
    for (const Rect& label : cafeFrontal)
        EXPECT_GE(cascade::votes(gray, px(label), false), 10) << label.x;
    // The woman behind, in profile, and her mirror image, turned the other way.
    const cv::Rect2f profile = px({470 / 3072., 340 / 2304., 200 / 3072., 223 / 2304.});
    cv::Mat mirrored;
    cv::flip(gray, mirrored, 1);
    EXPECT_LT(cascade::votes(gray, profile, false), 3);  // the frontal cascade alone
    EXPECT_GE(cascade::votes(gray, profile, true), 3);
    EXPECT_GE(
        cascade::votes(
            mirrored, {gray.cols - profile.br().x, profile.y, profile.width, profile.height}, true),
        3);
    // The table, a face-sized box shifted off its face, a box too small to judge, one outside.
    EXPECT_EQ(cascade::votes(gray, {800, 1000, 150, 150}, true), 0);
    EXPECT_EQ(cascade::votes(gray, px(cafeFrontal[0]) + cv::Point2f(0, 250), true), 0);
    EXPECT_EQ(cascade::votes(gray, {300, 500, 20, 20}, true), 0);
    EXPECT_EQ(cascade::votes(gray, {-500, -500, 100, 100}, true), 0);
    EXPECT_EQ(cascade::votes(gray, {0, 0, std::nanf(""), 100}, true), 0);
    EXPECT_EQ(cascade::votes(cv::Mat(), {0, 0, 100, 100}, true), 0);
}

}  // namespace
}  // namespace ql::vision
