#include "FaceDetector.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <thread>

#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include "Boxes.h"
#include "FaceCascade.h"
#include "FaceHog.h"
#include "LoadedModel.h"

namespace ql::vision {
namespace {

constexpr int workEdge = 1600;  // the long edge faces are looked for at
constexpr int modelSide = 256;  // BlazeFace's input
constexpr float sure = 0.6f;
constexpr float smallestFace = 6;    // pixels of the work image; what's smaller is noise
constexpr int hogFrameEdge = 1024;   // HOG's frame pass: about as long as BlazeFace's passes
constexpr float faint = 0.15f;       // BlazeFace's candidates below this are noise
constexpr size_t cascadeLooks = 32;  // 2 ms each, 5 ms for a turned face

struct Candidate {
    cv::Rect2f box;  // pixels of the work image
    float score = 0;
    std::array<cv::Point2f, 6> keypoints;
};

float logit(float p) {
    return std::log(p / (1 - p));
}

float sigmoid(float x) {
    return 1 / (1 + std::exp(-x));
}

// ---- BlazeFace

LoadedModel<cv::dnn::Net>& blazeFace() {
    static LoadedModel<cv::dnn::Net> net(ModelFile::faceDetector, [](const std::string& path) {
        return std::make_unique<cv::dnn::Net>(cv::dnn::readNetFromONNX(path));
    });
    return net;
}

// The centres of the 896 anchors, normalised: a 16×16 grid of 2 and an 8×8 grid of 6.
const std::vector<cv::Point2f>& anchors() {
    static const std::vector<cv::Point2f> all = [] {
        std::vector<cv::Point2f> a;
        a.reserve(896);
        for (const auto& [cells, perCell] : {std::pair{16, 2}, std::pair{8, 6}})
            for (int cy = 0; cy < cells; ++cy)
                for (int cx = 0; cx < cells; ++cx)
                    for (int k = 0; k < perCell; ++k)
                        a.emplace_back((cx + 0.5f) / cells, (cy + 0.5f) / cells);
        return a;
    }();
    return all;
}

// BlazeFace on `region` of the image, letterboxed into the model's square; candidates scoring at
// least `floor` are appended in image pixels.
void runBlazeFace(cv::dnn::Net& net, const cv::Mat& image, const cv::Rect& region, float floor,
                  std::vector<Candidate>& out) {
    const int side = std::max(region.width, region.height);
    const double s = double(modelSide) / side;
    cv::Mat canvas(modelSide, modelSide, CV_8UC3, cv::Scalar::all(0));
    const cv::Size fit(std::clamp(int(std::lround(region.width * s)), 1, modelSide),
                       std::clamp(int(std::lround(region.height * s)), 1, modelSide));
    cv::Mat placed = canvas(cv::Rect(cv::Point(0, 0), fit));
    cv::resize(image(region), placed, fit, 0, 0, s < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::Mat input;
    canvas.convertTo(input, CV_32FC3, 1.0 / 127.5, -1.0);
    const int shape[] = {1, modelSide, modelSide, 3};
    net.setInput(cv::Mat(4, shape, CV_32F, input.ptr<float>()));
    std::vector<cv::Mat> outs;
    net.forward(outs, std::vector<cv::String>{"Identity:0", "Identity_1:0", "Identity_2:0",
                                              "Identity_3:0"});
    const float logitFloor = logit(floor);
    const std::vector<cv::Point2f>& anchor = anchors();
    for (size_t layer = 0, first = 0; layer < 2; ++layer) {
        const float* logits = outs[layer].ptr<float>();
        const float* reg = outs[layer + 2].ptr<float>();
        const size_t count = std::min(outs[layer].total(), anchor.size() - first);
        for (size_t i = 0; i < count; ++i) {
            const float l = std::clamp(logits[i], -100.0f, 100.0f);
            if (!(l >= logitFloor)) continue;
            const float* r = reg + i * 16;
            const cv::Point2f a = anchor[first + i];
            auto toImage = [&](float u, float v) {
                return cv::Point2f(region.x + (a.x + u / modelSide) * side,
                                   region.y + (a.y + v / modelSide) * side);
            };
            Candidate c;
            c.score = sigmoid(l);
            const cv::Point2f centre = toImage(r[0], r[1]);
            const float w = r[2] / modelSide * side, h = r[3] / modelSide * side;
            if (!(w > 0 && h > 0)) continue;
            c.box = cv::Rect2f(centre.x - w / 2, centre.y - h / 2, w, h);
            for (size_t k = 0; k < 6; ++k)
                c.keypoints[k] = toImage(r[4 + 2 * k], r[5 + 2 * k]);
            out.push_back(c);
        }
        first += outs[layer].total();
    }
}

// Overlapping square tiles over the image, about 3/8 of its long edge each (never below the model's
// side): small faces become large enough for the model. Empty when one pass suffices.
std::vector<cv::Rect> tiles(const cv::Size& size) {
    const int longEdge = std::max(size.width, size.height);
    const double target = std::max<double>(modelSide, 0.375 * longEdge);
    if (target >= 0.8 * longEdge) return {};
    const double overlap = 0.2 * target;
    auto count = [&](int length) {
        return std::max(1, int(std::lround((length - overlap) / (target - overlap))));
    };
    const int nx = count(size.width), ny = count(size.height);
    const int side = int(std::ceil(
        std::max((size.width + (nx - 1) * overlap) / nx, (size.height + (ny - 1) * overlap) / ny)));
    auto starts = [&](int length, int n) {
        std::vector<int> s;
        for (int i = 0; i < n; ++i)
            s.push_back(n == 1 ? 0 : int(std::lround(double(length - side) * i / (n - 1))));
        return s;
    };
    std::vector<cv::Rect> out;
    for (int y : starts(size.height, ny))
        for (int x : starts(size.width, nx))
            out.push_back(cv::Rect(std::max(0, x), std::max(0, y), side, side) &
                          cv::Rect(cv::Point(0, 0), size));
    return out;
}

// True when the box comes within `margin` of an edge of the tile that lies inside the image: the
// face may be cut there, and a neighbouring tile holds it whole.
bool touchesInnerEdge(const cv::Rect2f& box, const cv::Rect& tile, const cv::Size& image,
                      float margin) {
    return (tile.x > 0 && box.x < tile.x + margin) || (tile.y > 0 && box.y < tile.y + margin) ||
           (tile.br().x < image.width && box.br().x > tile.br().x - margin) ||
           (tile.br().y < image.height && box.br().y > tile.br().y - margin);
}

// Weighted NMS: each group of overlapping candidates becomes their score-weighted mean, with the
// best score; then a box lying mostly inside a better one goes.
std::vector<Candidate> mergeOverlaps(std::vector<Candidate> c) {
    std::sort(c.begin(), c.end(), [](const auto& a, const auto& b) { return a.score > b.score; });
    std::vector<Candidate> merged;
    std::vector<bool> used(c.size(), false);
    for (size_t i = 0; i < c.size(); ++i) {
        if (used[i]) continue;
        Candidate mean;
        mean.keypoints.fill(cv::Point2f(0, 0));
        float weight = 0, x0 = 0, y0 = 0, x1 = 0, y1 = 0;
        for (size_t j = i; j < c.size(); ++j) {
            if (used[j] || (j > i && iou(c[i].box, c[j].box) <= 0.3f)) continue;
            used[j] = true;
            const float w = c[j].score;
            weight += w;
            x0 += w * c[j].box.x, y0 += w * c[j].box.y;
            x1 += w * c[j].box.br().x, y1 += w * c[j].box.br().y;
            for (size_t k = 0; k < 6; ++k)
                mean.keypoints[k] += w * c[j].keypoints[k];
        }
        const float inv = 1 / weight;
        mean.box = cv::Rect2f(cv::Point2f(x0 * inv, y0 * inv), cv::Point2f(x1 * inv, y1 * inv));
        for (cv::Point2f& p : mean.keypoints)
            p *= inv;
        mean.score = c[i].score;
        merged.push_back(mean);
    }
    std::vector<Candidate> kept;
    for (const Candidate& m : merged)
        if (std::none_of(kept.begin(), kept.end(), [&](const Candidate& k) {
                return (m.box & k.box).area() > 0.6f * m.box.area();
            }))
            kept.push_back(m);
    return kept;
}

// Candidates of the whole frame and of its tiles, merged; nothing when the model is unavailable.
std::optional<std::vector<Candidate>> blazeFaces(const cv::Mat& image, float floor) {
    std::vector<Candidate> found;
    const bool ok = blazeFace().use([&](cv::dnn::Net& net) {
        runBlazeFace(net, image, cv::Rect(0, 0, image.cols, image.rows), floor, found);
        std::vector<Candidate> inTile;
        for (const cv::Rect& tile : tiles(image.size())) {
            inTile.clear();
            runBlazeFace(net, image, tile, floor, inTile);
            const float margin = 0.01f * std::max(tile.width, tile.height);
            for (const Candidate& c : inTile)
                if (!touchesInnerEdge(c.box, tile, image.size(), margin)) found.push_back(c);
        }
    });
    if (!ok) return std::nullopt;
    return mergeOverlaps(std::move(found));
}

// ---- Merging with dlib's HOG detector

// HOG's score on the scale of BlazeFace's: dlib's own threshold (0) is a likely face (0.5), half a
// unit above it a sure one (0.6); clear faces score about 2 (0.83).
float hogConfidence(double score) {
    return sigmoid(0.81f * float(score));
}

// A HOG box in BlazeFace's terms: BlazeFace's box sits a little lower and is slightly larger, and
// its keypoints on upright frontal faces lie at these fractions of the HOG box.
Candidate fromHog(const hog::Found& found) {
    static constexpr float where[6][2] = {{0.29f, 0.32f}, {0.71f, 0.32f}, {0.50f, 0.55f},
                                          {0.50f, 0.77f}, {0.02f, 0.40f}, {0.98f, 0.40f}};
    const cv::Rect2f& r = found.box;
    Candidate c;
    c.box = cv::Rect2f(r.x - 0.01f * r.width, r.y + 0.02f * r.height, 1.02f * r.width,
                       1.02f * r.height);
    c.score = hogConfidence(found.score);
    for (size_t k = 0; k < 6; ++k)
        c.keypoints[k] = {r.x + where[k][0] * r.width, r.y + where[k][1] * r.height};
    return c;
}

// Agreement of the two detectors adds HOG's evidence to BlazeFace's; HOG's doubt does not count
// against a face, since it cannot see faces turned away.
float agreed(float score, float hogScore) {
    return hogScore > 0.5f ? sigmoid(logit(score) + logit(hogScore)) : score;
}

// A face only HOG found gets BlazeFace's view of a crop around it: real keypoints, and the other
// detector's opinion.
void lookCloser(cv::dnn::Net& net, const cv::Mat& image, Candidate& face) {
    const cv::Rect region = squareAround(face.box, 3, image.size());
    if (region.empty()) return;
    std::vector<Candidate> seen;
    runBlazeFace(net, image, region, 0.1f, seen);
    seen = mergeOverlaps(std::move(seen));
    const auto match = std::find_if(
        seen.begin(), seen.end(), [&](const Candidate& c) { return iou(c.box, face.box) > 0.3f; });
    if (match == seen.end()) return;
    const float hogScore = face.score;
    face = *match;
    face.score = agreed(match->score, hogScore);
}

// Clearly turned, by its keypoints: worth the cascades for faces seen from the side.
bool turnedAway(const Candidate& c) {
    auto point = [](const cv::Point2f& p) { return Point{p.x, p.y}; };
    return yaw(point(c.keypoints[0]), point(c.keypoints[1]), point(c.keypoints[2])) > 0.2;
}

// The cascade's agreeing windows as a confidence: three are an even guess, each one more adds
// 0.3 to the log-odds; a clear face has ten or more.
float cascadeConfidence(int votes) {
    return sigmoid(0.3f * float(votes - 3));
}

// Candidates nobody is sure of yet, the faint ones among them, get the cascade's opinion, likeliest
// first. One that overlaps a face already sure is another look at that face, not a face of its own.
void askCascade(const cv::Mat& gray, std::vector<Candidate>& faces,
                std::vector<Candidate> faintOnes) {
    faces.insert(faces.end(), faintOnes.begin(), faintOnes.end());
    std::stable_sort(faces.begin(), faces.end(),
                     [](const auto& a, const auto& b) { return a.score > b.score; });
    auto onASureFace = [&](const Candidate& c) {
        return std::any_of(faces.begin(), faces.end(), [&](const Candidate& f) {
            return f.score >= sure &&
                   (c.box & f.box).area() > 0.3f * std::min(c.box.area(), f.box.area());
        });
    };
    for (size_t i = 0, looks = 0; i < faces.size() && looks < cascadeLooks; ++i) {
        if (faces[i].score >= sure || onASureFace(faces[i])) continue;
        ++looks;
        try {
            faces[i].score =
                agreed(faces[i].score,
                       cascadeConfidence(cascade::votes(gray, faces[i].box, turnedAway(faces[i]))));
        } catch (const std::exception&) {  // the other detectors' word stands
        }
    }
}

std::vector<Candidate> findFaces(const cv::Mat& image, float minConfidence) {
    if (!blazeFace().available()) return {};
    cv::Mat gray;
    cv::cvtColor(image, gray, cv::COLOR_RGB2GRAY);
    // HOG's frame pass runs beside BlazeFace's passes, which leave OpenCV's threads partly idle.
    std::vector<Candidate> framed;
    std::thread frameThread([&] {
        try {
            for (const hog::Found& f : hog::inFrame(gray, hogFrameEdge))
                framed.push_back(fromHog(f));
        } catch (...) {  // the faces BlazeFace finds still count
        }
    });
    const float floor = std::clamp(std::min(minConfidence, 0.4f), 0.1f, 0.4f);
    std::optional<std::vector<Candidate>> found;
    try {
        found = blazeFaces(image, std::min(floor, faint));
    } catch (...) {
        frameThread.join();
        throw;
    }
    frameThread.join();
    if (!found) return {};
    std::vector<Candidate>& faces = *found;
    // The faintest wait for the cascade; HOG is asked only about the likelier ones.
    const auto firstFaint = std::stable_partition(
        faces.begin(), faces.end(), [&](const Candidate& c) { return c.score >= floor; });
    std::vector<Candidate> faintOnes(firstFaint, faces.end());
    faces.erase(firstFaint, faces.end());

    std::vector<bool> seen(faces.size(), false);
    std::vector<Candidate> hogOnly;
    for (const Candidate& h : framed) {
        size_t best = faces.size();
        float bestOverlap = 0.3f;
        for (size_t i = 0; i < faces.size(); ++i)
            if (const float o = iou(faces[i].box, h.box); o > bestOverlap)
                best = i, bestOverlap = o;
        if (best == faces.size()) {
            hogOnly.push_back(h);
        } else {
            faces[best].score = agreed(faces[best].score, h.score);
            seen[best] = true;
        }
    }
    // Weak candidates too small for the frame pass get HOG on an enlarged crop.
    const float frameScale = float(hogFrameEdge) / std::max(image.cols, image.rows);
    for (size_t i = 0, looks = 0; i < faces.size() && looks < 8; ++i) {
        if (seen[i] || faces[i].score >= sure ||
            std::max(faces[i].box.width, faces[i].box.height) * frameScale > 100)
            continue;
        ++looks;
        try {
            for (const hog::Found& f : hog::around(gray, faces[i].box))
                if (const Candidate h = fromHog(f); iou(faces[i].box, h.box) > 0.3f) {
                    faces[i].score = agreed(faces[i].score, h.score);
                    break;
                }
        } catch (const std::exception&) {  // BlazeFace's word stands
        }
    }
    for (Candidate& h : hogOnly) {
        const bool covered = std::any_of(faces.begin(), faces.end(), [&](const Candidate& f) {
            return (h.box & f.box).area() > 0.6f * std::min(h.box.area(), f.box.area());
        });
        if (covered) continue;
        blazeFace().use([&](cv::dnn::Net& net) { lookCloser(net, image, h); });
        faces.push_back(h);
    }
    askCascade(gray, faces, std::move(faintOnes));
    std::erase_if(faces, [&](const Candidate& c) {
        return c.score < minConfidence || c.box.width < smallestFace;
    });
    std::stable_sort(faces.begin(), faces.end(),
                     [](const auto& a, const auto& b) { return a.score > b.score; });
    return faces;
}

// One BlazeFace pass over the whole frame: the faces large enough to matter for a person mask.
std::vector<Candidate> frameFaces(const cv::Mat& image, float minConfidence) {
    std::vector<Candidate> found;
    blazeFace().use([&](cv::dnn::Net& net) {
        runBlazeFace(net, image, cv::Rect(0, 0, image.cols, image.rows), minConfidence, found);
    });
    return mergeOverlaps(std::move(found));
}

// An underexposed frame is lifted until its brightest few percent are near white: both
// detectors were trained on well exposed faces, and a dark one loses their confidence. `image`
// becomes a copy when it changes.
void brighten(cv::Mat& image) {
    cv::Mat grey;
    cv::cvtColor(image, grey, cv::COLOR_RGB2GRAY);
    int histogram[256] = {};
    for (int y = 0; y < grey.rows; ++y) {
        const uint8_t* g = grey.ptr<uint8_t>(y);
        for (int x = 0; x < grey.cols; ++x)
            ++histogram[g[x]];
    }
    const long total = long(grey.total());
    long above = 0;
    int bright = 255;
    while (bright > 0 && (above += histogram[bright]) < total / 50)
        --bright;
    const double gain = std::min(4.0, 230.0 / std::max(1, bright));
    if (gain < 1.15) return;
    cv::Mat lifted;
    image.convertTo(lifted, CV_8UC3, gain);
    image = lifted;
}

// Mean saturation, (max − min) / max, of every `step`th pixel of `region` bright enough to
// show a colour.
float saturation(const cv::Mat& rgb, const cv::Rect& region, int step) {
    const cv::Rect r = region & cv::Rect(0, 0, rgb.cols, rgb.rows);
    double sum = 0;
    long count = 0;
    for (int y = r.y; y < r.y + r.height; y += step) {
        const uint8_t* p = rgb.ptr<uint8_t>(y) + size_t(r.x) * 3;
        for (int x = 0; x < r.width; x += step, p += size_t(step) * 3) {
            const int high = std::max({p[0], p[1], p[2]});
            if (high < 24) continue;
            sum += double(high - std::min({p[0], p[1], p[2]})) / high;
            ++count;
        }
    }
    return count ? float(sum / double(count)) : 0.0f;
}

// A drawn, printed or carved face (a sketch on the wall, a plaster saint) has no skin colour. In
// a photo with colour elsewhere, a face that is nearly grey and much greyer than the photo is a
// picture of a face, not a person. A black-and-white photo keeps all its faces; face paint and
// pale skin under flash stay well above these bounds.
bool pictureOfAFace(const cv::Mat& rgb, const cv::Rect2f& box, float photoSaturation) {
    const cv::Rect inner(cv::Rect2f(box.x + 0.2f * box.width, box.y + 0.2f * box.height,
                                    0.6f * box.width, 0.6f * box.height));
    const float face = saturation(rgb, inner, 1);
    return face < 0.12f && face < 0.5f * photoSaturation;
}

std::vector<DetectedFace> facesOf(const Bitmap& bitmap, float minConfidence, bool thorough) {
    if (bitmap.empty() || bitmap.rgb.size() < size_t(bitmap.width) * size_t(bitmap.height) * 3)
        return {};
    std::vector<DetectedFace> faces;
    try {
        const cv::Mat full(bitmap.height, bitmap.width, CV_8UC3,
                           const_cast<uint8_t*>(bitmap.rgb.data()));
        cv::Mat image = full;
        if (bitmap.longEdge() > workEdge) {
            const double s = double(workEdge) / bitmap.longEdge();
            cv::resize(full, image,
                       cv::Size(std::max(1, int(std::lround(bitmap.width * s))),
                                std::max(1, int(std::lround(bitmap.height * s)))),
                       0, 0, cv::INTER_AREA);
        }
        brighten(image);
        const float sx = 1.0f / image.cols, sy = 1.0f / image.rows;
        const std::vector<Candidate> candidates =
            thorough ? findFaces(image, minConfidence) : frameFaces(image, minConfidence);
        const float photoSaturation =
            candidates.empty() ? 0 : saturation(image, cv::Rect(0, 0, image.cols, image.rows), 4);
        for (const Candidate& c : candidates) {
            const cv::Rect2f box = c.box & cv::Rect2f(0, 0, image.cols, image.rows);
            if (box.empty() || pictureOfAFace(image, box, photoSaturation)) continue;
            DetectedFace f;
            f.box = {box.x * sx, box.y * sy, box.width * sx, box.height * sy};
            f.confidence = c.score;
            for (size_t k = 0; k < 6; ++k)
                f.keypoints[k] = {c.keypoints[k].x * sx, c.keypoints[k].y * sy};
            faces.push_back(f);
        }
    } catch (const std::exception&) {
        return {};
    }
    return faces;
}

}  // namespace

double yaw(const Point& eye, const Point& otherEye, const Point& nose) {
    const double dx = otherEye.x - eye.x, dy = otherEye.y - eye.y;
    const double eyes = std::hypot(dx, dy);
    if (!(eyes > 1e-9)) return 0;
    const double along =
        (nose.x - (eye.x + otherEye.x) / 2) * dx + (nose.y - (eye.y + otherEye.y) / 2) * dy;
    return std::abs(along) / (eyes * eyes);
}

namespace FaceDetector {

std::vector<DetectedFace> find(const Bitmap& bitmap, float minConfidence) {
    return facesOf(bitmap, minConfidence, true);
}

std::vector<DetectedFace> findLarge(const Bitmap& bitmap, float minConfidence) {
    return facesOf(bitmap, minConfidence, false);
}

std::vector<Rect> detect(const img::Image& image) {
    std::vector<Rect> boxes;
    for (const DetectedFace& f : find(Bitmap::of(image, workEdge), sure))
        boxes.push_back(f.box);
    return boxes;
}

}  // namespace FaceDetector

}  // namespace ql::vision
