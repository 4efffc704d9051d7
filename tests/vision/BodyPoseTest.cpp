#include "vision/BodyPose.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "imaging/codec/ImageDecode.h"
#include "tests/support/Fixtures.h"
#include "vision/Models.h"

namespace ql::vision {
namespace {

Bitmap photo(const std::string& path, int maxLongEdge = 0) {
    return Bitmap::of(img::decodeImage(testing::readBytes(path)), maxLongEdge);
}

const Bitmap& threeMen() {
    static const Bitmap bitmap = photo(QL_SAMPLES_DIR "/three_men_night_flash.jpg");
    return bitmap;
}

const std::vector<BodyPose>& menPoses() {
    static const std::vector<BodyPose> poses = BodyPose::detect(threeMen());
    return poses;
}

std::vector<std::optional<Point>> joints(const BodyPose& p) {
    return {p.neck,      p.leftShoulder, p.rightShoulder, p.leftHip,   p.rightHip,
            p.root,      p.leftKnee,     p.rightKnee,     p.leftAnkle, p.rightAnkle,
            p.leftElbow, p.rightElbow,   p.leftWrist,     p.rightWrist};
}

// What holds for anyone upright in the bitmap.
void expectUpright(const std::vector<BodyPose>& poses, const Bitmap& b) {
    for (size_t i = 0; i < poses.size(); ++i) {
        const BodyPose& p = poses[i];
        SCOPED_TRACE(i);
        EXPECT_TRUE(p.confidence >= 0.2f && p.confidence <= 1);
        EXPECT_TRUE(i == 0 || poses[i - 1].confidence >= p.confidence);
        for (const auto& j : joints(p))
            EXPECT_TRUE(!j || (j->x >= 0 && j->x < b.width && j->y >= 0 && j->y < b.height));
        EXPECT_EQ(bool(p.neck), p.leftShoulder && p.rightShoulder);
        if (p.neck) {
            EXPECT_DOUBLE_EQ(p.neck->x, (p.leftShoulder->x + p.rightShoulder->x) / 2);
        }
        EXPECT_EQ(bool(p.root), p.leftHip && p.rightHip);
        if (p.neck && p.root) {
            EXPECT_LT(p.neck->y, p.root->y);
        }
    }
}

// The pose whose neck lies under the face, less than three face heights down; `scale` takes
// the face to the bitmap's pixels.
const BodyPose* underFace(const std::vector<BodyPose>& poses, const Rect& face, double scale) {
    for (const BodyPose& p : poses) {
        if (!p.neck) continue;
        const double dy = p.neck->y - scale * face.midY();
        if (std::abs(p.neck->x - scale * face.midX()) < scale * face.width && dy > 0 &&
            dy < 3 * scale * face.height)
            return &p;
    }
    return nullptr;
}

// At least `least` of the faces have a body under them, each facing the camera as its face
// does: the subject's left shoulder on the image right.
void expectBodiesUnder(const std::vector<BodyPose>& poses, const std::vector<Rect>& faces,
                       double scale, size_t least) {
    size_t found = 0;
    for (const Rect& face : faces)
        if (const BodyPose* p = underFace(poses, face, scale)) {
            ++found;
            EXPECT_GT(p->leftShoulder->x, p->rightShoulder->x) << face.x;
        }
    EXPECT_GE(found, least);
}

// The largest distance between the joints `a` and `b` both have, once `b` is moved by (dx, dy).
double farthestJoint(const BodyPose& a, const BodyPose& b, double dx, double dy) {
    double worst = 0;
    const auto ja = joints(a), jb = joints(b);
    for (size_t i = 0; i < ja.size(); ++i)
        if (ja[i] && jb[i])
            worst = std::max(worst, std::hypot(ja[i]->x - jb[i]->x - dx, ja[i]->y - jb[i]->y - dy));
    return worst;
}

// The hand-labelled face boxes, pixels of the full-size photos.
const std::vector<Rect> menFaces = {{505, 346, 97, 82}, {799, 403, 89, 68}, {1020, 286, 92, 74}};
const std::vector<Rect> cafeFaces = {
    {380, 860, 380, 332}, {950, 625, 395, 327}, {1747, 557, 408, 310}, {2312, 565, 370, 295}};

TEST(BodyPose, FindsTheThreeMenStandingUnderTheirFaces) {
    const auto& poses = menPoses();
    ASSERT_EQ(poses.size(), 3u);
    expectUpright(poses, threeMen());
    expectBodiesUnder(poses, menFaces, 1.0, 3);
    for (const BodyPose& p : poses) {
        ASSERT_TRUE(p.leftAnkle && p.root);
        EXPECT_GT(p.leftAnkle->y, 1000);  // they stand full length in the picture
    }
    // Most of them are seen clearly: not every pose is a guess.
    EXPECT_TRUE(std::any_of(poses.begin(), poses.end(), [](const auto& p) { return !p.guessed; }));
}

TEST(BodyPose, JointsStayOnThePersonInAPaddedInput) {
    // A tall crop of the man in the middle: the model's input is padded on the right.
    const int x0 = 640, w = 380;
    Bitmap tall;
    tall.width = w, tall.height = threeMen().height;
    for (int y = 0; y < tall.height; ++y)
        tall.rgb.insert(tall.rgb.end(), threeMen().row(y) + x0 * 3,
                        threeMen().row(y) + (x0 + w) * 3);
    const auto middle = BodyPose::detect(tall);
    ASSERT_GE(middle.size(), 1u);
    expectUpright(middle, tall);
    const Rect face = menFaces[1];
    const BodyPose* inCrop = underFace(middle, {face.x - x0, face.y, face.width, face.height}, 1.0);
    const BodyPose* inFull = underFace(menPoses(), face, 1.0);
    ASSERT_TRUE(inCrop && inFull);
    EXPECT_LT(farthestJoint(*inCrop, *inFull, -x0, 0), 40);  // the man is 800 pixels tall
}

TEST(BodyPose, TheCafeTableSeatsFourFacingTheCamera) {
    const Bitmap cafe = photo(QL_LABELLED_DIR "/group_cafe_indoor.jpg", 1600);
    const auto poses = BodyPose::detect(cafe);
    EXPECT_GE(poses.size(), 4u);
    EXPECT_LE(poses.size(), 6u);
    expectUpright(poses, cafe);
    // The man in the dark shirt shows too little of his shoulders for a neck.
    expectBodiesUnder(poses, cafeFaces, 1600.0 / 3072, 3);
}

TEST(BodyPose, NothingToSeeGivesNoOne) {
    EXPECT_TRUE(BodyPose::detect(Bitmap()).empty());
    EXPECT_TRUE(BodyPose::detect({1, 1, {120, 90, 60}}).empty());
    EXPECT_TRUE(BodyPose::detect({3000, 2, std::vector<uint8_t>(3000 * 2 * 3, 200)}).empty());
    // The declared size disagrees with the pixels.
    EXPECT_TRUE(BodyPose::detect({100, 100, std::vector<uint8_t>(30)}).empty());

    struct Restore {
        ~Restore() { setModelFolder({}); }
    } restore;
    testing::TempDir empty;
    setModelFolder(empty.path().string());
    EXPECT_TRUE(BodyPose::detect(threeMen()).empty());
    setModelFolder({});
    EXPECT_EQ(BodyPose::detect(threeMen()).size(), 3u);
}

}  // namespace
}  // namespace ql::vision
