#include "FaceCascade.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <vector>

#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include "LoadedModel.h"

namespace ql::vision::cascade {
namespace {

constexpr int window = 24;          // the cascade's own face size
constexpr float smallestBox = 32;   // smaller, a fist or a knot of folds passes for a face
constexpr double largestSide = 54;  // larger faces are shrunk to this: enough detail, less time
constexpr float reach = 2.2f;       // the crop's side, in face sizes
constexpr double step = 1.08;       // between the window sizes tried

LoadedModel<cv::CascadeClassifier>& classifier() {
    static LoadedModel<cv::CascadeClassifier> c(
        ModelFile::faceCascade, [](const std::string& path) {
            auto loaded = std::make_unique<cv::CascadeClassifier>();
            if (!loaded->load(path) || loaded->empty()) throw std::runtime_error("not a cascade");
            return loaded;
        });
    return c;
}

float overlap(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float inter = (a & b).area();
    const float uni = a.area() + b.area() - inter;
    return uni > 0 ? inter / uni : 0.0f;
}

}  // namespace

int votes(const cv::Mat& gray, const cv::Rect2f& box) {
    const float side = std::max(box.width, box.height);
    if (!(side >= smallestBox) || gray.empty()) return 0;
    const float crop = reach * side;
    const cv::Rect region = cv::Rect(cv::Rect2f(box.x + box.width / 2 - crop / 2,
                                                box.y + box.height / 2 - crop / 2, crop, crop)) &
                            cv::Rect(0, 0, gray.cols, gray.rows);
    if (region.width < window || region.height < window) return 0;
    // Never enlarged: an enlarged blur is smooth enough to look like a face to the cascade.
    const double s = std::min(1.0, largestSide / side);
    cv::Mat scaled = gray(region);
    if (s < 1) cv::resize(gray(region), scaled, cv::Size(), s, s, cv::INTER_AREA);
    const int smallest = std::max(window, int(std::lround(0.75 * side * s)));
    const int largest = std::max(smallest, int(std::lround(1.6 * side * s)));
    std::vector<cv::Rect> found;
    std::vector<int> counts;
    classifier().use([&](cv::CascadeClassifier& c) {
        c.detectMultiScale(scaled, found, counts, step, 1, 0, cv::Size(smallest, smallest),
                           cv::Size(largest, largest));
    });
    int best = 0;
    const float inv = float(1 / s);
    for (size_t i = 0; i < found.size() && i < counts.size(); ++i) {
        const cv::Rect2f f(region.x + found[i].x * inv, region.y + found[i].y * inv,
                           found[i].width * inv, found[i].height * inv);
        if (overlap(f, box) > 0.3f) best = std::max(best, counts[i]);
    }
    return best;
}

}  // namespace ql::vision::cascade
