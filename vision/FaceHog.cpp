#include "FaceHog.h"

#include <algorithm>
#include <mutex>

#include <dlib/image_processing/frontal_face_detector.h>
#include <dlib/opencv/cv_image.h>
#include <opencv2/imgproc.hpp>

#include "Boxes.h"

namespace ql::vision::hog {
namespace {

// Twice: over the whole frame, and limited to its first pyramid levels for crops scaled to a face
// of known size. Each use takes its detector's lock: the scanner keeps per-call state.
struct Detectors {
    dlib::frontal_face_detector frame, crop;
    std::mutex frameMutex, cropMutex;

    Detectors() : frame(dlib::get_frontal_face_detector()) {
        dlib::frontal_face_detector::image_scanner_type scanner;
        scanner.copy_configuration(frame.get_scanner());
        scanner.set_max_pyramid_levels(3);
        std::vector<dlib::frontal_face_detector::feature_vector_type> weights;
        for (unsigned long i = 0; i < frame.num_detectors(); ++i)
            weights.push_back(frame.get_w(i));
        crop = dlib::frontal_face_detector(scanner, frame.get_overlap_tester(), weights);
    }
};

Detectors& detectors() {
    static Detectors d;
    return d;
}

// Detections half a unit below dlib's threshold too: the caller weighs them.
constexpr double reach = -0.5;

// `gray` shows the caller's image from `origin` on, enlarged by `scale`.
std::vector<Found> run(dlib::frontal_face_detector& detector, std::mutex& mutex,
                       const cv::Mat& gray, double scale, cv::Point2f origin) {
    std::vector<dlib::rect_detection> found;
    {
        std::lock_guard lock(mutex);
        detector(dlib::cv_image<unsigned char>(gray), found, reach);
    }
    std::vector<Found> out;
    const float inv = float(1 / scale);
    for (const dlib::rect_detection& d : found)
        out.push_back({{origin.x + d.rect.left() * inv, origin.y + d.rect.top() * inv,
                        d.rect.width() * inv, d.rect.height() * inv},
                       d.detection_confidence});
    return out;
}

}  // namespace

std::vector<Found> inFrame(const cv::Mat& gray, int maxEdge) {
    Detectors& d = detectors();
    const int longEdge = std::max(gray.cols, gray.rows);
    if (longEdge <= maxEdge) return run(d.frame, d.frameMutex, gray, 1, {0, 0});
    const double s = double(maxEdge) / longEdge;
    cv::Mat small;
    cv::resize(gray, small, cv::Size(), s, s, cv::INTER_AREA);
    return run(d.frame, d.frameMutex, small, s, {0, 0});
}

std::vector<Found> around(const cv::Mat& gray, const cv::Rect2f& box) {
    const cv::Rect region = squareAround(box, 3, gray.size());
    if (region.width < 8 || region.height < 8) return {};
    const double s = 100.0 / std::max(box.width, box.height);
    cv::Mat scaled;
    cv::resize(gray(region), scaled, cv::Size(), s, s, s < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    Detectors& d = detectors();
    return run(d.crop, d.cropMutex, scaled, s, region.tl());
}

}  // namespace ql::vision::hog
