#include "BodyPose.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include "LoadedModel.h"

namespace ql::vision {

namespace {

constexpr int kCandidates = 6;   // the model's fixed number of people
constexpr int kKeypoints = 17;   // COCO order
constexpr int kLongInput = 320;  // group photos score higher here than at 256, for ~10 ms more
constexpr float kPersonScore = 0.2f;
constexpr float kJointScore = 0.25f;
constexpr float kSureJointScore = 0.4f;
constexpr float kCountedScore = 0.127f;  // keypoints below this don't count toward the person

// The model's input: a multiple of 32 on both sides, the long side fixed, the short one as close
// to the picture's aspect as the grid allows. The picture fills the top left; the rest is black.
struct InputGeometry {
    int width = 0, height = 0;  // the model's input
    double scale = 1;           // input pixels per bitmap pixel
};

InputGeometry geometryFor(int width, int height) {
    InputGeometry g;
    const bool landscape = width >= height;
    const double aspect = landscape ? double(height) / width : double(width) / height;
    const int shortSide =
        std::clamp(int(std::ceil(kLongInput * aspect / 32)) * 32, 128, kLongInput);
    g.width = landscape ? kLongInput : shortSide;
    g.height = landscape ? shortSide : kLongInput;
    g.scale = std::min(double(g.width) / width, double(g.height) / height);
    return g;
}

struct Heads {
    int h = 0, w = 0;  // grid cells
    const float* centre = nullptr;
    const float* heat = nullptr;
    const float* regress = nullptr;
    const float* offset = nullptr;
    const float* boxScale = nullptr;
    const float* boxOffset = nullptr;
    float at(const float* head, int channel, int y, int x) const {
        return head[(size_t(channel) * h + y) * w + x];
    }
};

struct Keypoint {
    double x = 0, y = 0;  // normalised to the input
    float score = 0;
};

struct Candidate {
    std::array<Keypoint, kKeypoints> keypoints;
    float score = 0;
};

// Local maxima of the centre heatmap over 5 × 5 cells, best first.
std::vector<std::pair<int, int>> centrePeaks(const Heads& m) {
    std::vector<std::pair<float, int>> peaks;
    for (int y = 0; y < m.h; ++y)
        for (int x = 0; x < m.w; ++x) {
            const float v = m.centre[y * m.w + x];
            float best = v;
            for (int yy = std::max(0, y - 2); yy <= std::min(m.h - 1, y + 2); ++yy)
                for (int xx = std::max(0, x - 2); xx <= std::min(m.w - 1, x + 2); ++xx)
                    best = std::max(best, m.centre[yy * m.w + xx]);
            if (best - v < 1e-6f) peaks.push_back({v, y * m.w + x});
        }
    const size_t n = std::min(peaks.size(), size_t(kCandidates));
    std::partial_sort(peaks.begin(), peaks.begin() + long(n), peaks.end(),
                      [](const auto& a, const auto& b) { return a.first > b.first; });
    std::vector<std::pair<int, int>> cells;
    for (size_t i = 0; i < n; ++i)
        cells.push_back({peaks[i].second / m.w, peaks[i].second % m.w});
    return cells;
}

// One person from its centre cell: each keypoint is the heatmap's best cell inside the person's
// box, weighted by closeness to where the centre says the keypoint should be.
Candidate decode(const Heads& m, int cy, int cx) {
    Candidate c;
    const float peak = m.centre[cy * m.w + cx];
    const double by = cy + m.at(m.boxOffset, 0, cy, cx), bx = cx + m.at(m.boxOffset, 1, cy, cx);
    const double bh = std::max(0.0f, m.at(m.boxScale, 0, cy, cx));
    const double bw = std::max(0.0f, m.at(m.boxScale, 1, cy, cx));
    const double y0 = std::clamp(by - bh / 2, 0.0, double(m.h)),
                 y1 = std::clamp(by + bh / 2, 0.0, double(m.h));
    const double x0 = std::clamp(bx - bw / 2, 0.0, double(m.w)),
                 x1 = std::clamp(bx + bw / 2, 0.0, double(m.w));
    const double spread = 0.3 * std::min(m.h, m.w);
    double sum = 0;
    int counted = 0;
    for (int k = 0; k < kKeypoints; ++k) {
        const double ry = cy + m.at(m.regress, 2 * k, cy, cx);
        const double rx = cx + m.at(m.regress, 2 * k + 1, cy, cx);
        double best = -1;
        int ky = -1, kx = -1;
        for (int y = int(std::ceil(y0)); y < y1; ++y)
            for (int x = int(std::ceil(x0)); x < x1; ++x) {
                const double d2 = (y - ry) * (y - ry) + (x - rx) * (x - rx);
                const double v = m.at(m.heat, k, y, x) * std::exp(-d2 / spread);
                if (v > best) best = v, ky = y, kx = x;
            }
        Keypoint& p = c.keypoints[size_t(k)];
        if (ky < 0) {  // an empty box: the regressed place, unscored
            p = {rx / m.w, ry / m.h, 0};
            continue;
        }
        p.score = float(best);
        p.x = (kx + m.at(m.offset, 2 * k + 1, ky, kx)) / m.w;
        p.y = (ky + m.at(m.offset, 2 * k, ky, kx)) / m.h;
        if (p.score > kCountedScore) sum += p.score, ++counted;
    }
    c.score = counted ? float(peak * sum / counted) : 0.0f;
    return c;
}

LoadedModel<cv::dnn::Net>& model() {
    static LoadedModel<cv::dnn::Net> net(ModelFile::multiPose, [](const std::string& path) {
        auto loaded = std::make_unique<cv::dnn::Net>(cv::dnn::readNetFromONNX(path));
        return loaded->empty() ? nullptr : std::move(loaded);
    });
    return net;
}

std::vector<Candidate> runModel(const Bitmap& bitmap, const InputGeometry& g) {
    const cv::Mat rgb(bitmap.height, bitmap.width, CV_8UC3, (void*)bitmap.rgb.data());
    const int w = std::max(1, int(std::lround(bitmap.width * g.scale)));
    const int h = std::max(1, int(std::lround(bitmap.height * g.scale)));
    cv::Mat input(g.height, g.width, CV_8UC3, cv::Scalar::all(0));
    cv::resize(rgb, input(cv::Rect(0, 0, std::min(w, g.width), std::min(h, g.height))),
               cv::Size(std::min(w, g.width), std::min(h, g.height)), 0, 0,
               g.scale < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    // Raw 0…255 RGB: the graph scales its input itself.
    const cv::Mat blob = cv::dnn::blobFromImage(input, 1.0, cv::Size(), cv::Scalar(), false);

    std::vector<Candidate> out;
    model().use([&](cv::dnn::Net& net) {
        std::vector<cv::Mat> heads;
        net.setInput(blob, "input");
        net.forward(heads,
                    std::vector<cv::String>{
                        "StatefulPartitionedCall_Sigmoid", "StatefulPartitionedCall_Sigmoid_1",
                        "StatefulPartitionedCall_kpt_regress_0_conv2d_8_BiasAdd",
                        "StatefulPartitionedCall_kpt_offset_0_conv2d_9_BiasAdd",
                        "StatefulPartitionedCall_box_scale_0_conv2d_5_BiasAdd",
                        "StatefulPartitionedCall_box_offset_0_conv2d_6_BiasAdd"});
        if (heads.size() != 6) return;
        Heads m;
        m.h = g.height / 4, m.w = g.width / 4;
        const std::array<int, 6> channels = {1, kKeypoints, 2 * kKeypoints, 2 * kKeypoints, 2, 2};
        for (size_t i = 0; i < heads.size(); ++i) {
            const cv::Mat& t = heads[i];
            if (t.dims != 4 || t.type() != CV_32F || !t.isContinuous() ||
                t.size[1] != channels[i] || t.size[2] != m.h || t.size[3] != m.w)
                return;
        }
        m.centre = heads[0].ptr<float>(), m.heat = heads[1].ptr<float>();
        m.regress = heads[2].ptr<float>(), m.offset = heads[3].ptr<float>();
        m.boxScale = heads[4].ptr<float>(), m.boxOffset = heads[5].ptr<float>();
        for (const auto& [cy, cx] : centrePeaks(m))
            out.push_back(decode(m, cy, cx));
    });
    return out;
}

}  // namespace

std::vector<BodyPose> BodyPose::detect(const Bitmap& bitmap) {
    if (bitmap.empty() || bitmap.rgb.size() != size_t(bitmap.width) * bitmap.height * 3) return {};
    const InputGeometry g = geometryFor(bitmap.width, bitmap.height);
    std::vector<Candidate> candidates;
    try {
        candidates = runModel(bitmap, g);
    } catch (const cv::Exception&) {
        return {};
    }

    std::vector<BodyPose> poses;
    for (const Candidate& c : candidates) {
        if (!(c.score >= kPersonScore)) continue;
        BodyPose pose;
        pose.confidence = std::min(1.0f, c.score);
        // A keypoint the model places in the black margin beyond the picture is a guess about
        // what isn't there; one a fraction of a cell outside is rounding.
        const double slack = 4 / g.scale;
        auto joint = [&](int k) -> std::optional<Point> {
            const Keypoint& p = c.keypoints[size_t(k)];
            if (!(p.score > kJointScore)) return std::nullopt;
            const double x = p.x * g.width / g.scale, y = p.y * g.height / g.scale;
            if (x < -slack || y < -slack || x > bitmap.width + slack || y > bitmap.height + slack)
                return std::nullopt;
            if (p.score < kSureJointScore) pose.guessed = true;
            return Point{std::clamp(x, 0.0, double(bitmap.width - 1)),
                         std::clamp(y, 0.0, double(bitmap.height - 1))};
        };
        auto midpoint = [](const std::optional<Point>& a, const std::optional<Point>& b) {
            return a && b ? std::optional<Point>(Point{(a->x + b->x) / 2, (a->y + b->y) / 2})
                          : std::nullopt;
        };
        pose.leftShoulder = joint(5), pose.rightShoulder = joint(6);
        pose.leftElbow = joint(7), pose.rightElbow = joint(8);
        pose.leftWrist = joint(9), pose.rightWrist = joint(10);
        pose.leftHip = joint(11), pose.rightHip = joint(12);
        pose.leftKnee = joint(13), pose.rightKnee = joint(14);
        pose.leftAnkle = joint(15), pose.rightAnkle = joint(16);
        pose.neck = midpoint(pose.leftShoulder, pose.rightShoulder);
        pose.root = midpoint(pose.leftHip, pose.rightHip);
        poses.push_back(pose);
    }
    std::stable_sort(poses.begin(), poses.end(), [](const BodyPose& a, const BodyPose& b) {
        return a.confidence > b.confidence;
    });
    return poses;
}

}  // namespace ql::vision
