#include "FaceQuality.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace ql::vision::FaceQuality {

namespace {

constexpr int workWidth = 96;  // sharpness is judged on the face scaled to this width
constexpr double pi = 3.14159265358979;

// 0 at `lo`, 1 at `hi`, linear between, clamped.
double ramp(double v, double lo, double hi) {
    return std::clamp((v - lo) / (hi - lo), 0.0, 1.0);
}

// Fine detail against contrast. Judging every face at one width makes a small face, enlarged, as
// soft as it looks; the light smoothing keeps sensor noise from passing for detail; dividing by the
// face's own spread keeps a dim or flat face from passing for a blurred one.
double sharpnessOf(const cv::Mat& grey) {
    cv::Mat smooth, lap;
    cv::GaussianBlur(grey, smooth, cv::Size(0, 0), 0.8);
    cv::Laplacian(smooth, lap, CV_32F, 1);
    cv::Scalar lapMean, lapDev, mean, dev;
    cv::meanStdDev(lap, lapMean, lapDev);
    cv::meanStdDev(smooth, mean, dev);
    return ramp(lapDev[0] / (dev[0] + 4.0), 0.03, 0.10);
}

// Skin of any tone sits well inside 0.28...0.72 of the sRGB range in a good exposure.
double exposureOf(const cv::Mat& grey) {
    const double mean = cv::mean(grey)[0] / 255.0;
    const double level = 1.0 - ramp(std::abs(mean - 0.5), 0.22, 0.42);
    const double clipped =
        double(cv::countNonZero(grey >= 250) + cv::countNonZero(grey <= 5)) / double(grey.total());
    return level * (1.0 - ramp(clipped, 0.05, 0.35));
}

double poseOf(const DetectedFace& face, double width, double height) {
    auto px = [&](const Point& p) { return Point{p.x * width, p.y * height}; };
    const Point a = px(face.keypoints[0]), b = px(face.keypoints[1]), nose = px(face.keypoints[2]);
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double eyes = std::hypot(dx, dy);
    const double boxWidth = face.box.width * width;
    if (!(eyes > 1e-6) || !std::isfinite(eyes)) return 0.5;  // no usable keypoints: no verdict
    const double roll = std::abs(std::atan2(dy, dx)) * 180.0 / pi;
    const double spread = eyes / boxWidth;
    return (1.0 - 0.5 * ramp(roll, 12, 45)) * (1.0 - 0.8 * ramp(yaw(a, b, nose), 0.12, 0.5)) *
           ramp(spread, 0.12, 0.3);
}

}  // namespace

double score(const Bitmap& bitmap, const DetectedFace& face) {
    if (bitmap.empty() || bitmap.rgb.size() < size_t(bitmap.width) * size_t(bitmap.height) * 3)
        return 0;
    const double w = bitmap.width, h = bitmap.height;
    const Rect& box = face.box;
    if (!(box.width > 0 && box.height > 0 && box.width <= 4 && box.height <= 4)) return 0;
    const double x0 = std::max(box.minX() * w, 0.0), y0 = std::max(box.minY() * h, 0.0);
    const double x1 = std::min(box.maxX() * w, w), y1 = std::min(box.maxY() * h, h);
    if (!(x1 > x0 && y1 > y0)) return 0;  // outside the picture (or not a number)
    // The inner face, without the hair and background at the box's rim.
    const double insetX = 0.12 * (x1 - x0), insetY = 0.1 * (y1 - y0);
    const cv::Rect inner(cv::Point(int(std::lround(x0 + insetX)), int(std::lround(y0 + insetY))),
                         cv::Point(int(std::lround(x1 - insetX)), int(std::lround(y1 - insetY))));
    if (inner.width < 3 || inner.height < 3) return 0;

    try {
        const cv::Mat image(bitmap.height, bitmap.width, CV_8UC3,
                            const_cast<uint8_t*>(bitmap.rgb.data()));
        cv::Mat grey, scaled;
        cv::cvtColor(image(inner), grey, cv::COLOR_RGB2GRAY);
        // In floats from here: a smooth face rounded to 8 bits again would show steps as detail.
        grey.convertTo(scaled, CV_32F);
        const double s = double(workWidth) / grey.cols;
        cv::resize(scaled, scaled, cv::Size(), s, s, s < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);

        const double sharpness = sharpnessOf(scaled);
        const double exposure = exposureOf(grey);
        const double size = ramp(std::log2(box.width * w), std::log2(24.0), std::log2(160.0));
        const double pose = poseOf(face, w, h);
        const double q = std::pow(sharpness, 0.35) * std::pow(exposure, 0.25) *
                         std::pow(size, 0.2) * std::pow(pose, 0.2);
        return std::isfinite(q) ? std::clamp(q, 0.0, 1.0) : 0.0;
    } catch (const std::exception&) {
        return 0;
    }
}

}  // namespace ql::vision::FaceQuality
