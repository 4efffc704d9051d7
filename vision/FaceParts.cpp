#include "FaceParts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include "LoadedModel.h"

namespace ql::vision {
namespace {

constexpr int meshSide = 192, irisSide = 64;

// FaceMesh indices of each region, in drawing order.
constexpr std::array<int, 16> rightEyeLoop = {33,  246, 161, 160, 159, 158, 157, 173,
                                              133, 155, 154, 153, 145, 144, 163, 7};
constexpr std::array<int, 16> leftEyeLoop = {263, 466, 388, 387, 386, 385, 384, 398,
                                             362, 382, 381, 380, 374, 373, 390, 249};
constexpr std::array<int, 10> rightBrowLoop = {70, 63, 105, 66, 107, 55, 65, 52, 53, 46};
constexpr std::array<int, 10> leftBrowLoop = {300, 293, 334, 296, 336, 285, 295, 282, 283, 276};
constexpr std::array<int, 20> outerLipsLoop = {61,  185, 40,  39,  37,  0,  267, 269, 270, 409,
                                               291, 375, 321, 405, 314, 17, 84,  181, 91,  146};
constexpr std::array<int, 20> innerLipsLoop = {78,  191, 80,  81,  82,  13, 312, 311, 310, 415,
                                               308, 324, 318, 402, 317, 14, 87,  178, 88,  95};
constexpr std::array<int, 16> noseLoop = {98,  97,  2, 326, 327, 294, 278, 344,
                                          440, 275, 4, 45,  220, 115, 48,  64};
constexpr std::array<int, 7> noseCrestLine = {168, 6, 197, 195, 5, 4, 1};
constexpr std::array<int, 36> silhouetteLoop = {
    10,  338, 297, 332, 284, 251, 389, 356, 454, 323, 361, 288, 397, 365, 379, 378, 400, 377,
    152, 148, 176, 149, 150, 136, 172, 58,  132, 93,  234, 127, 162, 21,  54,  103, 67,  109};

// The iris model's lid points 0…15 as FaceMesh indices, for the eye it was shown unmirrored (the
// subject's right) and mirrored (the subject's left).
constexpr std::array<int, 16> rightLidPoints = {33,  7,   163, 144, 145, 153, 154, 155,
                                                133, 246, 161, 160, 159, 158, 157, 173};
constexpr std::array<int, 16> leftLidPoints = {263, 249, 390, 373, 374, 380, 381, 382,
                                               362, 466, 388, 387, 386, 385, 384, 398};

LoadedModel<cv::dnn::Net>& faceMesh() {
    static LoadedModel<cv::dnn::Net> net(ModelFile::faceMesh, [](const std::string& path) {
        return std::make_unique<cv::dnn::Net>(cv::dnn::readNetFromONNX(path));
    });
    return net;
}

LoadedModel<cv::dnn::Net>& irisModel() {
    static LoadedModel<cv::dnn::Net> net(ModelFile::iris, [](const std::string& path) {
        return std::make_unique<cv::dnn::Net>(cv::dnn::readNetFromONNX(path));
    });
    return net;
}

cv::Point2d apply(const cv::Matx23d& m, cv::Point2d p) {
    return {m(0, 0) * p.x + m(0, 1) * p.y + m(0, 2), m(1, 0) * p.x + m(1, 1) * p.y + m(1, 2)};
}

// The similarity transform that maps a square of `side` around `centre`, turned by `degrees`, onto
// an output square of `out` pixels.
cv::Matx23d cropTransform(cv::Point2d centre, double degrees, double side, int out) {
    cv::Matx23d a = cv::getRotationMatrix2D(cv::Point2f(centre), degrees, out / side);
    a(0, 2) += out / 2.0 - centre.x;
    a(1, 2) += out / 2.0 - centre.y;
    return a;
}

cv::Mat inputBlob(const cv::Mat& rgb, const cv::Matx23d& a, int side) {
    cv::Mat crop;
    cv::warpAffine(rgb, crop, a, cv::Size(side, side), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return cv::dnn::blobFromImage(crop, 1.0 / 255, cv::Size(), cv::Scalar(), false, false);
}

double degreesOf(cv::Point2d from, cv::Point2d to) {
    return std::atan2(to.y - from.y, to.x - from.x) * 180 / CV_PI;
}

// FaceMesh's 468 points in image pixels; nothing when the mesh does not take it for a face.
std::optional<std::vector<cv::Point2d>> meshPoints(cv::dnn::Net& net, const cv::Mat& rgb,
                                                   const cv::Rect2d& box, cv::Point2d eye0,
                                                   cv::Point2d eye1) {
    const double side = 1.5 * std::max(box.width, box.height);
    const cv::Point2d centre(box.x + box.width / 2, box.y + box.height / 2);
    const cv::Matx23d a = cropTransform(centre, degreesOf(eye0, eye1), side, meshSide);
    net.setInput(inputBlob(rgb, a, meshSide));
    std::vector<cv::Mat> outs;
    net.forward(outs,
                std::vector<cv::String>{"StatefulPartitionedCall_model_1_conv2d_21_BiasAdd",
                                        "StatefulPartitionedCall_model_1_activation_1_Sigmoid"});
    if (outs.size() != 2 || outs[0].total() < 468 * 3 || outs[1].total() < 1) return std::nullopt;
    if (!(outs[1].ptr<float>()[0] >= 0.5f)) return std::nullopt;
    cv::Matx23d back;
    cv::invertAffineTransform(a, back);
    const float* v = outs[0].ptr<float>();
    std::vector<cv::Point2d> points(468);
    for (size_t i = 0; i < points.size(); ++i)
        points[i] = apply(back, {v[3 * i], v[3 * i + 1]});
    return points;
}

struct Iris {
    cv::Point2d centre;
    double radius = 0;
    std::array<cv::Point2d, 16> lids;  // the lid points, in image pixels
};

// The iris model on one eye, cropped between its corners. The model knows only the subject's right
// eye, so the left one is shown mirrored; the inverse transform undoes that too.
std::optional<Iris> irisOf(cv::dnn::Net& net, const cv::Mat& rgb, cv::Point2d start,
                           cv::Point2d end, bool mirrored) {
    const double span = std::hypot(end.x - start.x, end.y - start.y);
    if (!(span > 1)) return std::nullopt;
    cv::Matx23d a = cropTransform((start + end) / 2, degreesOf(start, end), 2.3 * span, irisSide);
    if (mirrored) {
        for (int c = 0; c < 3; ++c)
            a(0, c) = -a(0, c);
        a(0, 2) += irisSide;
    }
    net.setInput(inputBlob(rgb, a, irisSide));
    std::vector<cv::Mat> outs;
    net.forward(outs, std::vector<cv::String>{
                          "StatefulPartitionedCall_model_conv_eyes_contours_and_brows_BiasAdd",
                          "StatefulPartitionedCall_model_conv_iris_BiasAdd"});
    if (outs.size() != 2 || outs[0].total() < 71 * 3 || outs[1].total() < 5 * 3)
        return std::nullopt;
    cv::Matx23d back;
    cv::invertAffineTransform(a, back);
    const float* eye = outs[0].ptr<float>();
    const float* iris = outs[1].ptr<float>();
    Iris out;
    out.centre = apply(back, {iris[0], iris[1]});
    for (int k = 1; k <= 4; ++k) {
        const cv::Point2d edge = apply(back, {iris[3 * k], iris[3 * k + 1]});
        out.radius += std::hypot(edge.x - out.centre.x, edge.y - out.centre.y) / 4;
    }
    for (size_t k = 0; k < out.lids.size(); ++k)
        out.lids[k] = apply(back, {eye[3 * k], eye[3 * k + 1]});
    return out;
}

template <size_t N>
std::vector<Point> region(const std::vector<cv::Point2d>& mesh, const std::array<int, N>& loop) {
    std::vector<Point> out;
    out.reserve(N);
    for (int i : loop)
        out.push_back({mesh[size_t(i)].x, mesh[size_t(i)].y});
    return out;
}

bool finite(const DetectedFace& f) {
    auto ok = [](double v) { return std::isfinite(v) && std::abs(v) < 100; };
    return ok(f.box.x) && ok(f.box.y) && ok(f.box.width) && ok(f.box.height) &&
           ok(f.keypoints[0].x) && ok(f.keypoints[0].y) && ok(f.keypoints[1].x) &&
           ok(f.keypoints[1].y);
}

}  // namespace

namespace FaceParts {

std::vector<FaceShape> detect(const Bitmap& bitmap) {
    return detect(bitmap, FaceDetector::find(bitmap, 0.6f));
}

std::vector<FaceShape> detect(const Bitmap& bitmap, const std::vector<DetectedFace>& faces) {
    if (bitmap.empty() || faces.empty() ||
        bitmap.rgb.size() < size_t(bitmap.width) * size_t(bitmap.height) * 3)
        return {};
    const cv::Mat rgb(bitmap.height, bitmap.width, CV_8UC3,
                      const_cast<uint8_t*>(bitmap.rgb.data()));
    const double w = bitmap.width, h = bitmap.height;
    std::vector<FaceShape> shapes;
    for (const DetectedFace& face : faces) {
        if (!finite(face) || face.box.width < 0.01 || face.box.height <= 0) continue;
        FaceShape s;
        s.box = {face.box.x * w, face.box.y * h, face.box.width * w, face.box.height * h};
        std::optional<std::vector<cv::Point2d>> mesh;
        try {
            faceMesh().use([&](cv::dnn::Net& net) {
                mesh = meshPoints(net, rgb, {s.box.x, s.box.y, s.box.width, s.box.height},
                                  {face.keypoints[0].x * w, face.keypoints[0].y * h},
                                  {face.keypoints[1].x * w, face.keypoints[1].y * h});
            });
        } catch (const std::exception&) {
            continue;
        }
        if (!mesh) continue;
        std::vector<cv::Point2d>& m = *mesh;

        std::optional<Iris> right, left;
        bool irisAvailable = false;
        try {
            irisAvailable = irisModel().use([&](cv::dnn::Net& net) {
                right = irisOf(net, rgb, m[33], m[133], false);
                left = irisOf(net, rgb, m[362], m[263], true);
            });
        } catch (const std::exception&) {
        }
        // The iris model sees the lids at a finer scale than the mesh.
        if (right)
            for (size_t k = 0; k < rightLidPoints.size(); ++k)
                m[size_t(rightLidPoints[k])] = right->lids[k];
        if (left)
            for (size_t k = 0; k < leftLidPoints.size(); ++k)
                m[size_t(leftLidPoints[k])] = left->lids[k];

        s.leftEye = region(m, leftEyeLoop);
        s.rightEye = region(m, rightEyeLoop);
        s.leftBrow = region(m, leftBrowLoop);
        s.rightBrow = region(m, rightBrowLoop);
        s.outerLips = region(m, outerLipsLoop);
        s.innerLips = region(m, innerLipsLoop);
        s.nose = region(m, noseLoop);
        s.noseCrest = region(m, noseCrestLine);
        s.contour = region(m, silhouetteLoop);
        if (right) {
            s.rightPupil = Point{right->centre.x, right->centre.y};
            s.rightIrisRadius = right->radius;
        } else if (!irisAvailable) {
            s.rightPupil = centroid(s.rightEye);
        }
        if (left) {
            s.leftPupil = Point{left->centre.x, left->centre.y};
            s.leftIrisRadius = left->radius;
        } else if (!irisAvailable) {
            s.leftPupil = centroid(s.leftEye);
        }
        shapes.push_back(std::move(s));
    }
    return shapes;
}

}  // namespace FaceParts

}  // namespace ql::vision
