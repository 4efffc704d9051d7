#include "PersonInstances.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <mutex>
#include <opencv2/imgproc.hpp>

namespace ql::vision {

namespace {

// Points along a bone, so that a limb claims the pixels around its whole length, not only its
// ends.
void addBone(std::vector<Point>& points, const std::optional<Point>& a,
             const std::optional<Point>& b) {
    if (!a || !b) return;
    constexpr int steps = 6;
    for (int i = 1; i < steps; ++i) {
        const double t = double(i) / steps;
        points.push_back({a->x + t * (b->x - a->x), a->y + t * (b->y - a->y)});
    }
}

PersonSeed seedOf(const BodyPose& p) {
    PersonSeed s;
    for (const auto* j : {&p.neck, &p.root, &p.leftShoulder, &p.rightShoulder, &p.leftHip,
                          &p.rightHip, &p.leftKnee, &p.rightKnee, &p.leftAnkle, &p.rightAnkle,
                          &p.leftElbow, &p.rightElbow, &p.leftWrist, &p.rightWrist})
        if (*j) s.points.push_back(**j);
    addBone(s.points, p.neck, p.root);
    addBone(s.points, p.leftShoulder, p.leftElbow), addBone(s.points, p.leftElbow, p.leftWrist);
    addBone(s.points, p.rightShoulder, p.rightElbow);
    addBone(s.points, p.rightElbow, p.rightWrist);
    addBone(s.points, p.leftShoulder, p.leftHip), addBone(s.points, p.rightShoulder, p.rightHip);
    addBone(s.points, p.leftHip, p.leftKnee), addBone(s.points, p.leftKnee, p.leftAnkle);
    addBone(s.points, p.rightHip, p.rightKnee), addBone(s.points, p.rightKnee, p.rightAnkle);
    return s;
}

// How far a face is from sitting on the pose's shoulders, in face heights; infinite when it
// can't be that person's face.
double faceToPose(const Rect& face, const BodyPose& p) {
    const auto& base = p.neck ? p.neck : p.leftShoulder ? p.leftShoulder : p.rightShoulder;
    if (!base || face.empty()) return std::numeric_limits<double>::infinity();
    const double half = p.leftShoulder && p.rightShoulder
                            ? std::abs(p.leftShoulder->x - p.rightShoulder->x) / 2
                            : 0.0;
    const double dx = std::max(0.0, std::abs(face.midX() - base->x) - half) / face.height;
    const double dy = (base->y - face.midY()) / face.height;  // the head is above the neck
    if (dy < 0 || dy > 3 || dx > 1) return std::numeric_limits<double>::infinity();
    return dx + std::abs(dy - 1);
}

}  // namespace

std::vector<PersonSeed> personSeeds(const std::vector<Rect>& faces,
                                    const std::vector<BodyPose>& poses) {
    std::vector<PersonSeed> seeds;
    for (const BodyPose& p : poses)
        seeds.push_back(seedOf(p));
    for (const Rect& f : faces) {
        if (f.empty()) continue;
        double best = std::numeric_limits<double>::infinity();
        size_t owner = seeds.size();
        for (size_t i = 0; i < poses.size(); ++i)
            if (const double d = faceToPose(f, poses[i]); d < best) best = d, owner = i;
        if (owner == seeds.size()) seeds.emplace_back();
        // The face, and the neck below it when no pose shows where the body is.
        seeds[owner].points.push_back({f.midX(), f.midY()});
        if (owner >= poses.size())
            seeds[owner].points.push_back({f.midX(), f.maxY() + 0.3 * f.height});
    }
    return seeds;
}

PersonInstances PersonInstances::separate(const float* guide, int width, int height,
                                          float threshold, const std::vector<PersonSeed>& seeds,
                                          int minArea, const img::Execution& exec) {
    PersonInstances out;
    if (!guide || width <= 0 || height <= 0) return out;
    out.width = width, out.height = height;
    out.labels.assign(size_t(width) * size_t(height), 0);

    cv::Mat regions(height, width, CV_32S, out.labels.data()), stats, centroids;
    int count = 0;
    try {
        cv::Mat inside;
        cv::compare(cv::Mat(height, width, CV_32F, (void*)guide), threshold, inside, cv::CMP_GE);
        count = cv::connectedComponentsWithStats(inside, regions, stats, centroids, 8, CV_32S);
    } catch (const cv::Exception&) {
        return {};
    }
    if (regions.ptr<int32_t>() != out.labels.data())  // not written in place after all
        std::copy(regions.ptr<int32_t>(), regions.ptr<int32_t>() + out.labels.size(),
                  out.labels.data());

    // The people each region holds. A seed just off the foreground (a joint on the outline)
    // still counts for the region beside it.
    std::vector<std::vector<int>> people(size_t(std::max(count, 1)));
    auto regionAt = [&](const Point& p) {
        if (!(p.x > -4 && p.x < width + 4 && p.y > -4 && p.y < height + 4)) return 0;
        const int cx = int(std::lround(p.x)), cy = int(std::lround(p.y));
        for (int r = 0; r <= 3; ++r)
            for (int y = std::max(0, cy - r); y <= std::min(height - 1, cy + r); ++y)
                for (int x = std::max(0, cx - r); x <= std::min(width - 1, cx + r); ++x)
                    if (const int l = regions.at<int32_t>(y, x)) return l;
        return 0;
    };
    for (size_t s = 0; s < seeds.size(); ++s)
        for (const Point& p : seeds[s].points)
            if (const int l = regionAt(p)) {
                auto& v = people[size_t(l)];
                if (std::find(v.begin(), v.end(), int(s)) == v.end()) v.push_back(int(s));
            }

    // Instances: a region as it is, or one instance per person in it. A region shared by
    // several people is cut on a coarse grid by the nearest seed: where two people touch, a few
    // pixels either way don't matter.
    constexpr int cell = 4;
    constexpr int dropped = -1, shared = -2;
    std::vector<int> instanceOf(size_t(std::max(count, 1)), dropped);  // per region
    struct Split {
        int left, top, cols;
        std::vector<int> owner;  // per cell: instance index
    };
    std::vector<Split> splits(size_t(std::max(count, 1)));
    for (int l = 1; l < count; ++l) {
        const int area = stats.at<int>(l, cv::CC_STAT_AREA);
        if (area < minArea) continue;
        const int left = stats.at<int>(l, cv::CC_STAT_LEFT),
                  top = stats.at<int>(l, cv::CC_STAT_TOP);
        const int right = left + stats.at<int>(l, cv::CC_STAT_WIDTH);
        const int bottom = top + stats.at<int>(l, cv::CC_STAT_HEIGHT);
        const auto& who = people[size_t(l)];
        if (who.size() <= 1) {
            instanceOf[size_t(l)] = int(out.instances.size());
            out.instances.push_back({who.empty() ? -1 : who[0], area, 0, left, top, right, bottom});
            continue;
        }
        instanceOf[size_t(l)] = shared;
        Split& s = splits[size_t(l)];
        s.left = left, s.top = top;
        s.cols = (right - left + cell - 1) / cell;
        const int rows = (bottom - top + cell - 1) / cell;
        const int firstInstance = int(out.instances.size());
        for (int person : who)
            out.instances.push_back({person, 0, 0, width, height, 0, 0});
        s.owner.resize(size_t(s.cols) * size_t(rows));
        for (int cy = 0; cy < rows; ++cy)
            for (int cx = 0; cx < s.cols; ++cx) {
                const double px = left + (cx + 0.5) * cell, py = top + (cy + 0.5) * cell;
                double best = std::numeric_limits<double>::infinity();
                int owner = 0;
                for (size_t k = 0; k < who.size(); ++k)
                    for (const Point& p : seeds[size_t(who[k])].points) {
                        const double d = (p.x - px) * (p.x - px) + (p.y - py) * (p.y - py);
                        if (d < best) best = d, owner = int(k);
                    }
                s.owner[size_t(cy) * s.cols + cx] = firstInstance + owner;
            }
    }

    // Region labels become instance labels; the guide's mass is gathered on the way, and the
    // size and bounds of the pieces of shared regions. Each band of rows gathers its own sums.
    std::mutex merging;
    img::parallelFor(0, height, exec, [&](int begin, int end) {
        std::vector<PersonInstance> part(out.instances.size(), {-1, 0, 0, width, height, 0, 0});
        for (int y = begin; y < end; ++y) {
            int32_t* row = out.labels.data() + size_t(y) * width;
            const float* g = guide + size_t(y) * width;
            for (int x = 0; x < width; ++x) {
                const int l = row[x];
                if (!l) continue;
                int index = instanceOf[size_t(l)];
                if (index == shared) {
                    const Split& s = splits[size_t(l)];
                    index = s.owner[size_t((y - s.top) / cell) * s.cols + (x - s.left) / cell];
                    PersonInstance& i = part[size_t(index)];
                    ++i.area;
                    i.left = std::min(i.left, x), i.right = std::max(i.right, x + 1);
                    i.top = std::min(i.top, y), i.bottom = std::max(i.bottom, y + 1);
                }
                row[x] = index + 1;
                if (index >= 0) part[size_t(index)].overlap += std::min(1.0f, g[x]);
            }
        }
        std::lock_guard lock(merging);
        for (size_t k = 0; k < part.size(); ++k) {
            PersonInstance& i = out.instances[k];
            const PersonInstance& p = part[k];
            i.overlap += p.overlap;
            if (p.area == 0) continue;  // whole regions have theirs already
            i.area += p.area;
            i.left = std::min(i.left, p.left), i.right = std::max(i.right, p.right);
            i.top = std::min(i.top, p.top), i.bottom = std::max(i.bottom, p.bottom);
        }
    });
    for (PersonInstance& i : out.instances)
        if (i.area == 0) i.left = i.top = i.right = i.bottom = 0;
    return out;
}

bool keepInstance(const PersonInstance& instance, double guideCoverage) {
    return instance.area > 0 && (guideCoverage < 0.002 || instance.overlap / instance.area > 0.04);
}

}  // namespace ql::vision
