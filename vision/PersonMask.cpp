#include "PersonMask.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include "Bitmap.h"
#include "FaceDetector.h"
#include "LoadedModel.h"
#include "PersonInstances.h"

namespace ql::vision {

namespace PersonMask {

namespace {

constexpr int kMaskLongEdge = 2048;
constexpr int kSmallestPicture = 16;  // short edge; below it no model sees a person
constexpr int kModelSide = 256;
constexpr float kFaceConfidence = 0.5f;
constexpr int kRefineLongEdge = 512;         // the filter's coefficients are smooth: solve small
constexpr double kRefineRadius = 1.0 / 128;  // of the long edge
constexpr double kRefineEpsilon = 1e-3;      // grey variance below which an edge is smoothed over
constexpr float kForeground = 0.5f;
constexpr double kCrowdFace = 0.1;  // of the short edge: a face at most this tall is in a crowd
constexpr double kSmallestInstance = 1e-4;  // of the picture: specks are not people
constexpr int kInstanceLongEdge = 1024;

LoadedModel<cv::dnn::Net>& segmentation() {
    static LoadedModel<cv::dnn::Net> net(ModelFile::selfieSegmentation, [](const std::string& p) {
        auto loaded = std::make_unique<cv::dnn::Net>(cv::dnn::readNetFromONNX(p));
        return loaded->empty() ? nullptr : std::move(loaded);
    });
    return net;
}

// The model's view of a picture: the person probability on its square grid, which it squashes
// the picture to; empty when the model is unavailable.
cv::Mat modelView(const cv::Mat& rgb) {
    cv::Mat square;
    cv::resize(rgb, square, cv::Size(kModelSide, kModelSide), 0, 0, cv::INTER_AREA);
    const cv::Mat blob = cv::dnn::blobFromImage(square, 1.0 / 255, cv::Size(), cv::Scalar(), false);
    cv::Mat probability;
    segmentation().use([&](cv::dnn::Net& net) {
        net.setInput(blob, "input");
        const cv::Mat out = net.forward("activation_10");
        if (out.total() == size_t(kModelSide) * kModelSide && out.type() == CV_32F)
            probability = cv::Mat(kModelSide, kModelSide, CV_32F, (void*)out.ptr<float>()).clone();
    });
    return probability;
}

// The model's views of overlapping parts of the picture, each in its place on a grid of `size`
// over the picture and fading out towards the part's inner edges so that no seam shows; their
// weighted mean. Empty when the model is unavailable.
cv::Mat blendedViews(const cv::Mat& rgb, const std::vector<cv::Rect>& parts, cv::Size size) {
    cv::Mat sum(size, CV_32F, cv::Scalar(0)), weight(size, CV_32F, cv::Scalar(0));
    const double sx = double(size.width) / rgb.cols, sy = double(size.height) / rgb.rows;
    for (const cv::Rect& part : parts) {
        const cv::Rect target(int(std::lround(part.x * sx)), int(std::lround(part.y * sy)),
                              int(std::lround(part.width * sx)),
                              int(std::lround(part.height * sy)));
        const cv::Rect area = target & cv::Rect(0, 0, size.width, size.height);
        if (part.empty() || area.empty()) continue;
        const cv::Mat square = modelView(rgb(part));
        if (square.empty()) return {};
        cv::Mat view;
        cv::resize(square, view, target.size(), 0, 0, cv::INTER_LINEAR);
        const double ramp = 0.25 * std::min(area.width, area.height);
        const bool fadeLeft = part.x > 0, fadeTop = part.y > 0;
        const bool fadeRight = part.br().x < rgb.cols, fadeBottom = part.br().y < rgb.rows;
        for (int y = 0; y < area.height; ++y) {
            const float* v = view.ptr<float>(area.y - target.y + y) + (area.x - target.x);
            float* s = sum.ptr<float>(area.y + y) + area.x;
            float* w = weight.ptr<float>(area.y + y) + area.x;
            const double top = fadeTop ? (y + 0.5) / ramp : 1;
            const double bottom = fadeBottom ? (area.height - y - 0.5) / ramp : 1;
            const double wy = std::min({1.0, top, bottom});
            for (int x = 0; x < area.width; ++x) {
                const double left = fadeLeft ? (x + 0.5) / ramp : 1;
                const double right = fadeRight ? (area.width - x - 0.5) / ramp : 1;
                const float wxy = float(wy * std::min({1.0, left, right}));
                s[x] += wxy * v[x], w[x] += wxy;
            }
        }
    }
    for (int y = 0; y < size.height; ++y) {
        float* s = sum.ptr<float>(y);
        const float* w = weight.ptr<float>(y);
        for (int x = 0; x < size.width; ++x)
            s[x] = w[x] > 0 ? s[x] / w[x] : 0;
    }
    return sum;
}

// The person probability on a grid of `size` over the picture. Squashed to the model's square, a
// picture of another shape distorts its people and loses detail along its long side, and the
// model then misses hair and limbs; such a picture is seen as squares of its short side,
// overlapping along its long side by at least a fifth. A long strip gets at most kMostParts looks,
// each then longer than square.
constexpr int kMostParts = 4;
cv::Mat personProbability(const cv::Mat& rgb, cv::Size size) {
    const int shortSide = std::min(rgb.cols, rgb.rows), longSide = std::max(rgb.cols, rgb.rows);
    std::vector<cv::Rect> parts;
    if (longSide <= 1.15 * shortSide) {
        parts.push_back(cv::Rect(0, 0, rgb.cols, rgb.rows));
    } else {
        const int n =
            std::min(kMostParts, int(std::ceil((longSide - 0.2 * shortSide) / (0.8 * shortSide))));
        const int length = std::max(shortSide, int(std::ceil(longSide / (0.8 * n + 0.2))));
        for (int k = 0; k < n; ++k) {
            const int at = int(std::lround(double(longSide - length) * k / (n - 1)));
            parts.push_back(rgb.cols > rgb.rows ? cv::Rect(at, 0, length, shortSide)
                                                : cv::Rect(0, at, shortSide, length));
        }
    }
    return blendedViews(rgb, parts, size);
}

// The model was trained on people who fill much of the frame; in a crowd it sees no one. Where
// faces show people it missed, it looks again at overlapping tiles; the more certain view wins.
void addTiles(const cv::Mat& rgb, int tilesPerSide, cv::Mat& probability) {
    const double side = 1.5 / tilesPerSide;  // of each dimension: neighbours overlap by half
    std::vector<cv::Rect> tiles;
    for (int ty = 0; ty < tilesPerSide; ++ty)
        for (int tx = 0; tx < tilesPerSide; ++tx) {
            const double fx0 = (1 - side) * tx / (tilesPerSide - 1);
            const double fy0 = (1 - side) * ty / (tilesPerSide - 1);
            tiles.push_back(cv::Rect(int(fx0 * rgb.cols), int(fy0 * rgb.rows), int(side * rgb.cols),
                                     int(side * rgb.rows)));
        }
    const cv::Mat views = blendedViews(rgb, tiles, probability.size());
    if (!views.empty()) probability = cv::max(probability, views);
}

// How many tiles a side the crowd needs: enough that a missed person, about seven faces tall,
// fills a good part of a tile. None when every face is already seen, or when the faces missed
// are large: a tile of a close-up cuts a person into parts the model can't make sense of.
int tilesFor(const std::vector<Rect>& faces, const cv::Mat& probability, int width, int height) {
    std::vector<double> missed;
    for (const Rect& f : faces) {
        const int x = std::clamp(int(f.midX() * probability.cols), 0, probability.cols - 1);
        const int y = std::clamp(int(f.midY() * probability.rows), 0, probability.rows - 1);
        const double faceHeight = f.height * height;
        if (probability.at<float>(y, x) < kForeground &&
            faceHeight < kCrowdFace * std::min(width, height))
            missed.push_back(faceHeight);
    }
    if (missed.empty()) return 0;
    std::nth_element(missed.begin(), missed.begin() + long(missed.size() / 2), missed.end());
    const double person = 7 * missed[missed.size() / 2];
    return std::clamp(int(std::lround(std::min(width, height) / person)), 2, 3);
}

// The sRGB-encoded grey the edges are judged by: perceptual steps, as the model saw them.
inline float greyOf(const uint8_t* p) {
    return (0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2]) * (1.0f / 255);
}

// A guided filter with the picture's grey as the guide: the coarse probability becomes locally a
// linear function of the grey, so its edge moves onto the picture's edges. The coefficients are
// solved on a copy `shrink` times smaller (a whole number: the shrinking is then a plain block
// mean) and interpolated up, then applied to the full-size grey.
cv::Mat refined(const cv::Mat& probability, const cv::Mat& rgb, int shrink,
                const img::Execution& exec) {
    const cv::Mat& p = probability;
    const cv::Size small = p.size();
    const int radius =
        std::max(1, int(std::lround(kRefineRadius * std::max(small.width, small.height))));
    cv::Mat rgbSmall, I;
    cv::resize(rgb(cv::Rect(0, 0, small.width * shrink, small.height * shrink)), rgbSmall, small, 0,
               0, cv::INTER_AREA);
    cv::cvtColor(rgbSmall, I, cv::COLOR_RGB2GRAY);
    I.convertTo(I, CV_32F, 1.0 / 255);

    auto mean = [&](const cv::Mat& m) {
        cv::Mat out;
        cv::boxFilter(m, out, CV_32F, cv::Size(2 * radius + 1, 2 * radius + 1), cv::Point(-1, -1),
                      true, cv::BORDER_REFLECT);
        return out;
    };
    const cv::Mat meanI = mean(I), meanP = mean(p);
    const cv::Mat varI = mean(I.mul(I)) - meanI.mul(meanI);
    const cv::Mat covIP = mean(I.mul(p)) - meanI.mul(meanP);
    const cv::Mat a = covIP / (varI + kRefineEpsilon);
    const cv::Mat A = mean(a), B = mean(meanP - a.mul(meanI));

    // Bilinear interpolation of A and B at each full-size pixel, fused with applying them.
    const int w = rgb.cols, h = rgb.rows;
    cv::Mat q(h, w, CV_32F);
    std::vector<int> x0(size_t(w), 0);
    std::vector<float> fx(size_t(w), 0);
    for (int x = 0; x < w; ++x) {
        const double sx = std::clamp((x + 0.5) / shrink - 0.5, 0.0, small.width - 1.0);
        x0[size_t(x)] = std::min(int(sx), std::max(0, small.width - 2));
        fx[size_t(x)] = float(sx - x0[size_t(x)]);
    }
    const int nextColumn = small.width > 1 ? 1 : 0;
    img::parallelFor(0, h, exec, [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            const double sy = std::clamp((y + 0.5) / shrink - 0.5, 0.0, small.height - 1.0);
            const int y0 = std::min(int(sy), std::max(0, small.height - 2));
            const int y1 = std::min(y0 + 1, small.height - 1);
            const float fy = float(sy - y0);
            const float *a0 = A.ptr<float>(y0), *a1 = A.ptr<float>(y1);
            const float *b0 = B.ptr<float>(y0), *b1 = B.ptr<float>(y1);
            const uint8_t* in = rgb.ptr<uint8_t>(y);
            float* out = q.ptr<float>(y);
            for (int x = 0; x < w; ++x, in += 3) {
                const int i = x0[size_t(x)], j = i + nextColumn;
                const float t = fx[size_t(x)];
                const float av =
                    (1 - fy) * (a0[i] + t * (a0[j] - a0[i])) + fy * (a1[i] + t * (a1[j] - a1[i]));
                const float bv =
                    (1 - fy) * (b0[i] + t * (b0[j] - b0[i])) + fy * (b1[i] + t * (b1[j] - b1[i]));
                out[x] = std::clamp(av * greyOf(in) + bv, 0.0f, 1.0f);
            }
        }
    });
    return q;
}

std::optional<img::Image> computeWith(const Bitmap& bitmap, const std::vector<Rect>* faces,
                                      const img::Execution& exec) {
    if (bitmap.empty() || std::min(bitmap.width, bitmap.height) < kSmallestPicture ||
        exec.cancelled())
        return std::nullopt;
    const int w = bitmap.width, h = bitmap.height;
    const cv::Mat rgb(h, w, CV_8UC3, (void*)bitmap.rgb.data());

    std::vector<Rect> faceBoxes;
    if (faces) {
        faceBoxes = *faces;
    } else {
        // Faces too small for one look at the frame add little to a mask the segmentation
        // already holds; callers that found them all pass them in.
        for (const DetectedFace& f : FaceDetector::findLarge(bitmap, kFaceConfidence))
            if (f.confidence >= kFaceConfidence) faceBoxes.push_back(f.box);
    }
    // A box that is not a face somewhere near the picture is dropped, not painted.
    std::erase_if(faceBoxes, [](const Rect& f) {
        return !(f.width > 0 && f.width < 3 && f.height > 0 && f.height < 3 && f.midX() > -1 &&
                 f.midX() < 2 && f.midY() > -1 && f.midY() < 2);
    });
    if (exec.cancelled()) return std::nullopt;

    // Without the segmentation the guide starts black, and only faces can show people.
    cv::Mat guide = cv::Mat::zeros(h, w, CV_32F);
    const int refineShrink = (std::max(w, h) + kRefineLongEdge - 1) / kRefineLongEdge;
    const cv::Size grid(std::max(1, w / refineShrink), std::max(1, h / refineShrink));
    if (cv::Mat probability = personProbability(rgb, grid); !probability.empty()) {
        if (const int tiles = tilesFor(faceBoxes, probability, w, h))
            addTiles(rgb, tiles, probability);
        if (exec.cancelled()) return std::nullopt;
        guide = refined(probability, rgb, refineShrink, exec);
    }
    if (exec.cancelled()) return std::nullopt;

    // Faces are people whatever the segmentation says. A face is round: the corners of its box
    // are as often background as not.
    for (Rect& f : faceBoxes) {
        f = {f.x * w, f.y * h, f.width * w, f.height * h};
        cv::ellipse(guide, cv::Point(int(std::lround(f.midX())), int(std::lround(f.midY()))),
                    cv::Size(int(std::ceil(f.width / 2)), int(std::ceil(f.height / 2))), 0, 0, 360,
                    cv::Scalar(1.0), cv::FILLED);
    }
    const double coverage = cv::mean(guide)[0];

    // People are told apart on a smaller copy: regions and who they belong to don't need every
    // pixel. They are told apart by their faces alone: body joints would cost more than
    // everything else here together, and they change which person a pixel belongs to, not
    // whether it is kept.
    const double shrink = std::max(1.0, double(std::max(w, h)) / kInstanceLongEdge);
    const int iw = std::max(1, int(std::lround(w / shrink)));
    const int ih = std::max(1, int(std::lround(h / shrink)));
    cv::Mat small = guide;
    if (iw != w || ih != h) cv::resize(guide, small, cv::Size(iw, ih), 0, 0, cv::INTER_AREA);
    std::vector<Rect> seedFaces;
    for (const Rect& f : faceBoxes)
        seedFaces.push_back({f.x * iw / w, f.y * ih / h, f.width * iw / w, f.height * ih / h});
    const int minArea = std::max(1, int(kSmallestInstance * iw * ih));
    const PersonInstances instances = PersonInstances::separate(
        small.ptr<float>(), iw, ih, kForeground, personSeeds(seedFaces, {}), minArea, exec);
    if (exec.cancelled()) return std::nullopt;

    std::vector<uint8_t> kept(instances.instances.size() + 1, 0);
    bool any = false;
    for (size_t i = 0; i < instances.instances.size(); ++i)
        if (keepInstance(instances.instances[i], coverage)) kept[i + 1] = 1, any = true;
    if (!any) return std::nullopt;

    // The kept instances are solid; outside them the guide's soft edge stays.
    img::Image mask = img::Image::forOverwrite(w, h);
    if (mask.empty()) return std::nullopt;
    std::vector<int> column(size_t(w), 0);
    for (int x = 0; x < w; ++x)
        column[size_t(x)] = std::min(iw - 1, int(x * iw / w));
    const bool done = img::parallelFor(0, h, exec, [&](int begin, int end) {
        for (int y = begin; y < end; ++y) {
            const float* g = guide.ptr<float>(y);
            const int32_t* l = instances.labels.data() + size_t(std::min(ih - 1, y * ih / h)) * iw;
            float* o = mask.row(y);
            for (int x = 0; x < w; ++x, o += 4) {
                const float v =
                    kept[size_t(l[column[size_t(x)]])] && g[x] >= kForeground ? 1.0f : g[x];
                o[0] = o[1] = o[2] = o[3] = v;
            }
        }
    });
    if (!done) return std::nullopt;
    return mask;
}

}  // namespace

std::optional<img::Image> compute(const img::Image& image, const img::Execution& exec) {
    return compute(Bitmap::of(image, kMaskLongEdge, exec), nullptr, exec);
}

std::optional<img::Image> compute(const Bitmap& bitmap, const std::vector<Rect>* faces,
                                  const img::Execution& exec) {
    try {
        return computeWith(bitmap, faces, exec);
    } catch (const cv::Exception&) {
        return std::nullopt;
    }
}

img::Image fitted(const img::Image& mask, int width, int height, bool feather,
                  const img::Execution& exec) {
    if (mask.empty() || width <= 0 || height <= 0 || exec.cancelled()) return {};
    if (!feather && mask.width() == width && mask.height() == height) return mask;
    try {
        cv::Mat value(mask.height(), mask.width(), CV_32F);
        img::parallelFor(0, mask.height(), exec, [&](int begin, int end) {
            for (int y = begin; y < end; ++y) {
                const float* in = mask.row(y);
                float* v = value.ptr<float>(y);
                for (int x = 0; x < mask.width(); ++x)
                    v[x] = in[size_t(x) * 4];
            }
        });
        // The feather is proportional to the picture, so it is made at the smaller of the two
        // sizes and scaled with the mask: a 24-megapixel export then erodes and blurs a mask of
        // 2048 pixels, and the bilinear enlargement of a blurred mask adds nothing visible.
        const bool enlarging = double(width) * height > double(mask.width()) * mask.height();
        cv::Mat scaled;
        if (!enlarging) cv::resize(value, scaled, cv::Size(width, height), 0, 0, cv::INTER_LINEAR);
        cv::Mat& work = enlarging ? value : scaled;
        if (feather && !exec.cancelled()) {
            // Eroding first keeps the blur's outer half inside the outline: no halo of the
            // adjustment on the background next to the person. A square is as good as a disc
            // under the blur and much cheaper.
            const int longEdge = std::max(work.cols, work.rows);
            const int r = std::max(1, int(std::lround(0.0015 * longEdge)));
            cv::erode(work, work, cv::Mat::ones(2 * r + 1, 2 * r + 1, CV_8U), cv::Point(-1, -1), 1,
                      cv::BORDER_REPLICATE);
            const double sigma = 0.0018 * longEdge;
            if (sigma >= 0.3)
                cv::GaussianBlur(work, work, cv::Size(), sigma, sigma, cv::BORDER_REPLICATE);
        }
        if (enlarging) {
            cv::resize(value, scaled, cv::Size(width, height), 0, 0, cv::INTER_LINEAR);
            value.release();
        }
        if (exec.cancelled()) return {};
        img::Image out = img::Image::forOverwrite(width, height);
        if (out.empty()) return out;
        const bool done = img::parallelFor(0, height, exec, [&](int begin, int end) {
            for (int y = begin; y < end; ++y) {
                const float* v = scaled.ptr<float>(y);
                float* o = out.row(y);
                for (int x = 0; x < width; ++x, o += 4)
                    o[0] = o[1] = o[2] = o[3] = std::clamp(v[x], 0.0f, 1.0f);
            }
        });
        return done ? out : img::Image();
    } catch (const cv::Exception&) {
        return {};
    }
}

double coverage(const img::Image& mask) {
    if (mask.empty()) return 0;
    double sum = 0;
    for (int y = 0; y < mask.height(); ++y) {
        const float* p = mask.row(y);
        double row = 0;
        for (int x = 0; x < mask.width(); ++x)
            row += p[size_t(x) * 4];
        sum += row;
    }
    return sum / double(mask.pixelCount());
}

}  // namespace PersonMask

}  // namespace ql::vision
