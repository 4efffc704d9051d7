#include "FaceCascade.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>
#include <vector>

#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

#include "Boxes.h"
#include "LoadedModel.h"

namespace ql::vision::cascade {
namespace {

constexpr float smallestBox = 32;   // smaller, a fist or a knot of folds passes for a face
constexpr double largestSide = 54;  // larger faces are shrunk to this: enough detail, less time
constexpr float reach = 2.2f;       // the crop's side, in face sizes
constexpr double step = 1.08;       // between the window sizes tried

using Cascade = LoadedModel<cv::CascadeClassifier>;

Cascade::Loader loader() {
    return [](const std::string& path) {
        auto loaded = std::make_unique<cv::CascadeClassifier>();
        if (!loaded->load(path) || loaded->empty()) throw std::runtime_error("not a cascade");
        return loaded;
    };
}

Cascade& frontal() {
    static Cascade c(ModelFile::faceCascade, loader());
    return c;
}

// Trained on faces turned to one side; the mirrored crop shows it those turned to the other.
Cascade& profile() {
    static Cascade c(ModelFile::profileCascade, loader());
    return c;
}

}  // namespace

int votes(const cv::Mat& gray, const cv::Rect2f& box, bool turned) {
    const float side = std::max(box.width, box.height);
    if (!(side >= smallestBox) || gray.empty()) return 0;
    const cv::Rect region = squareAround(box, reach, gray.size());
    if (region.width < smallestBox || region.height < smallestBox) return 0;
    // Never enlarged: an enlarged blur is smooth enough to look like a face to the cascade.
    const double s = std::min(1.0, largestSide / side);
    cv::Mat scaled = gray(region), mirrored;
    if (s < 1) cv::resize(gray(region), scaled, cv::Size(), s, s, cv::INTER_AREA);
    const float inv = float(1 / s);

    int best = 0;
    auto scan = [&](cv::CascadeClassifier& c, const cv::Mat& image, bool flipped) {
        const cv::Size window = c.getOriginalWindowSize();
        const int smallest = std::max(window.width, int(std::lround(0.75 * side * s)));
        const int largest = std::max(smallest, int(std::lround(1.6 * side * s)));
        std::vector<cv::Rect> found;
        std::vector<int> counts;
        c.detectMultiScale(image, found, counts, step, 1, 0, cv::Size(smallest, smallest),
                           cv::Size(largest, largest));
        for (size_t i = 0; i < found.size() && i < counts.size(); ++i) {
            const int x = flipped ? image.cols - found[i].br().x : found[i].x;
            const cv::Rect2f f(region.x + x * inv, region.y + found[i].y * inv,
                               found[i].width * inv, found[i].height * inv);
            if (iou(f, box) > 0.3f) best = std::max(best, counts[i]);
        }
    };
    frontal().use([&](cv::CascadeClassifier& c) { scan(c, scaled, false); });
    if (turned)
        profile().use([&](cv::CascadeClassifier& c) {
            scan(c, scaled, false);
            cv::flip(scaled, mirrored, 1);
            scan(c, mirrored, true);
        });
    return best;
}

}  // namespace ql::vision::cascade
