// The people of an open photo: found once on a picture of at most 2048 pixels, then drawn as
// masks at whatever size a base of the photo is asked at.
#include <algorithm>
#include <cmath>

#include "ImageSource.h"
#include "people/FaceMaskDrawing.h"
#include "vision/Bitmap.h"
#include "vision/BodyPose.h"
#include "vision/FaceDetector.h"
#include "vision/FaceParts.h"
#include "vision/PersonMask.h"

namespace ql {

namespace {

constexpr int kAnalysisLongEdge = 2048;

vision::Point scaled(vision::Point p, double sx, double sy) {
    return {p.x * sx, p.y * sy};
}

std::vector<vision::Point> scaled(const std::vector<vision::Point>& points, double sx, double sy) {
    std::vector<vision::Point> out;
    out.reserve(points.size());
    for (const vision::Point& p : points)
        out.push_back(scaled(p, sx, sy));
    return out;
}

std::optional<vision::Point> scaled(const std::optional<vision::Point>& p, double sx, double sy) {
    if (!p) return std::nullopt;
    return scaled(*p, sx, sy);
}

vision::FaceShape scaled(const vision::FaceShape& f, double sx, double sy) {
    vision::FaceShape out;
    out.box = {f.box.x * sx, f.box.y * sy, f.box.width * sx, f.box.height * sy};
    for (auto member :
         {&vision::FaceShape::leftEye, &vision::FaceShape::rightEye, &vision::FaceShape::leftBrow,
          &vision::FaceShape::rightBrow, &vision::FaceShape::outerLips,
          &vision::FaceShape::innerLips, &vision::FaceShape::nose, &vision::FaceShape::contour,
          &vision::FaceShape::noseCrest})
        out.*member = scaled(f.*member, sx, sy);
    out.leftPupil = scaled(f.leftPupil, sx, sy);
    out.rightPupil = scaled(f.rightPupil, sx, sy);
    const double s = std::sqrt(sx * sy);
    out.leftIrisRadius = f.leftIrisRadius * s;
    out.rightIrisRadius = f.rightIrisRadius * s;
    return out;
}

vision::BodyPose scaled(const vision::BodyPose& b, double sx, double sy) {
    vision::BodyPose out = b;
    for (auto member :
         {&vision::BodyPose::neck, &vision::BodyPose::leftShoulder,
          &vision::BodyPose::rightShoulder, &vision::BodyPose::leftHip, &vision::BodyPose::rightHip,
          &vision::BodyPose::root, &vision::BodyPose::leftKnee, &vision::BodyPose::rightKnee,
          &vision::BodyPose::leftAnkle, &vision::BodyPose::rightAnkle, &vision::BodyPose::leftElbow,
          &vision::BodyPose::rightElbow, &vision::BodyPose::leftWrist,
          &vision::BodyPose::rightWrist})
        out.*member = scaled(b.*member, sx, sy);
    return out;
}

// A face is kept for a point when its box, grown by a quarter of its size on every side,
// holds the point.
bool near(const vision::FaceShape& face, const std::vector<NPoint>& only, double width,
          double height) {
    const vision::Rect& b = face.box;
    const vision::Rect grown{b.x - b.width / 4, b.y - b.height / 4, b.width * 1.5, b.height * 1.5};
    return std::any_of(only.begin(), only.end(), [&](const NPoint& p) {
        return grown.contains({p.x * width, p.y * height});
    });
}

}  // namespace

struct ImageSource::PeopleCache {
    // The picture the analysis looks at, kept while some analysis may still need it.
    vision::Bitmap bitmap;
    std::optional<std::vector<vision::DetectedFace>> detected;  // normalised
    // Landmarks and joints are in the pixels of the bitmap they were found on.
    int width = 0, height = 0;
    std::optional<std::vector<vision::FaceShape>> faces;
    std::optional<std::vector<vision::BodyPose>> bodies;
    bool personSearched = false;
    std::optional<img::Image> person;  // the bitmap's size; absent when there are no people
    img::Image fittedPerson;           // the last fitted person mask

    struct Masks {
        int width, height;
        bool parts;
        std::vector<NPoint> only;
        FaceMasks masks;
    };
    std::vector<Masks> masks;  // the two most recent, newest first

    const vision::Bitmap& bitmapOf(const img::Image& matching) {
        if (bitmap.empty()) bitmap = vision::Bitmap::of(matching, kAnalysisLongEdge);
        return bitmap;
    }
    // Faces at the likely threshold: the person mask takes them all, landmarks the sure ones.
    const std::vector<vision::DetectedFace>& detectedIn(const img::Image& matching) {
        if (!detected) detected = vision::FaceDetector::find(bitmapOf(matching), 0.5f);
        return *detected;
    }
    void releaseBitmap() {
        if (detected && faces && bodies && personSearched) bitmap = {};
    }
};

ImageSource::PeopleCache& ImageSource::people() {
    if (!people_) people_ = std::make_shared<PeopleCache>();
    return *people_;
}

void ImageSource::searchPeople(const img::Image& matching) {
    PeopleCache& cache = people();
    if (cache.personSearched) return;
    ++peopleAnalyses_;
    std::vector<vision::Rect> boxes;
    for (const vision::DetectedFace& f : cache.detectedIn(matching))
        boxes.push_back(f.box);
    cache.person = vision::PersonMask::compute(cache.bitmapOf(matching), &boxes);
    cache.personSearched = true;
    cache.releaseBitmap();
}

std::optional<double> ImageSource::personCoverage(const img::Image& matching) {
    if (matching.empty()) return std::nullopt;
    std::lock_guard lock(peopleMutex_);
    searchPeople(matching);
    if (!people().person) return std::nullopt;
    return vision::PersonMask::coverage(*people().person);
}

std::optional<img::Image> ImageSource::personMask(const img::Image& matching) {
    return fittedPersonMask(matching, false);
}

std::optional<img::Image> ImageSource::fittedPersonMask(const img::Image& matching,
                                                        bool atMostFound) {
    if (matching.empty()) return std::nullopt;
    std::lock_guard lock(peopleMutex_);
    searchPeople(matching);
    PeopleCache& cache = people();
    if (!cache.person) return std::nullopt;
    const img::Image& found = *cache.person;
    const bool larger = double(matching.pixelCount()) > double(found.pixelCount());
    const int w = atMostFound && larger ? found.width() : matching.width();
    const int h = atMostFound && larger ? found.height() : matching.height();
    if (cache.fittedPerson.width() != w || cache.fittedPerson.height() != h)
        cache.fittedPerson = vision::PersonMask::fitted(found, w, h, true);
    return cache.fittedPerson;
}

std::vector<vision::Rect> ImageSource::faceBoxes(const img::Image& matching) {
    if (matching.empty()) return {};
    std::lock_guard lock(peopleMutex_);
    PeopleCache& cache = people();
    if (!cache.detected) ++peopleAnalyses_;
    std::vector<vision::Rect> boxes;
    for (const vision::DetectedFace& f : cache.detectedIn(matching))
        if (f.confidence >= 0.6f) boxes.push_back(f.box);
    cache.releaseBitmap();
    return boxes;
}

std::optional<FaceMasks> ImageSource::faceMask(const img::Image& matching, bool parts,
                                               const std::vector<NPoint>& only) {
    if (matching.empty()) return std::nullopt;
    std::lock_guard lock(peopleMutex_);
    PeopleCache& cache = people();
    for (auto it = cache.masks.begin(); it != cache.masks.end(); ++it)
        if (it->width == matching.width() && it->height == matching.height() &&
            it->parts == parts && it->only == only) {
            std::rotate(cache.masks.begin(), it, it + 1);
            return cache.masks.front().masks;
        }

    if (!cache.faces) {
        ++peopleAnalyses_;
        std::vector<vision::DetectedFace> sure;
        for (const vision::DetectedFace& f : cache.detectedIn(matching))
            if (f.confidence >= 0.6f) sure.push_back(f);
        const vision::Bitmap& bitmap = cache.bitmapOf(matching);
        cache.faces = vision::FaceParts::detect(bitmap, sure);
        cache.width = bitmap.width, cache.height = bitmap.height;
    }
    const double sx = double(matching.width()) / std::max(1, cache.width);
    const double sy = double(matching.height()) / std::max(1, cache.height);
    std::vector<vision::FaceShape> faces;
    for (const vision::FaceShape& f : *cache.faces)
        if (only.empty() || near(f, only, cache.width, cache.height))
            faces.push_back(scaled(f, sx, sy));
    if (faces.empty()) return std::nullopt;

    std::vector<vision::Rect> boxes;
    for (const vision::FaceShape& f : faces)
        boxes.push_back(f.box);
    FaceMasks masks;
    masks.skin = FaceParts::skinDisc(boxes, matching.width(), matching.height());
    if (parts) {
        masks = FaceParts::masks(faces, matching.width(), matching.height(), masks);
        if (!cache.bodies) {
            // Joints are found on the bitmap the faces were found on, so one scale serves both.
            const vision::Bitmap& bitmap = cache.bitmapOf(matching);
            const double kx = double(cache.width) / std::max(1, bitmap.width);
            const double ky = double(cache.height) / std::max(1, bitmap.height);
            cache.bodies.emplace();
            for (const vision::BodyPose& b : vision::BodyPose::detect(bitmap))
                cache.bodies->push_back(scaled(b, kx, ky));
        }
        auto info = std::make_shared<PortraitInfo>();
        info->faces = faces;
        for (const vision::BodyPose& b : *cache.bodies)
            info->bodies.push_back(scaled(b, sx, sy));
        masks.info = std::move(info);
    }
    cache.releaseBitmap();
    cache.masks.insert(cache.masks.begin(),
                       {matching.width(), matching.height(), parts, only, masks});
    if (cache.masks.size() > 2) cache.masks.pop_back();
    return masks;
}

img::Image ImageSource::maskIfNeeded(const Adjustments& adjustments, const img::Image& matching) {
    if (adjustments.people.isNeutral() && adjustments.background.isNeutral()) return {};
    return fittedPersonMask(matching, true).value_or(img::Image{});
}

std::optional<FaceMasks> ImageSource::facesIfNeeded(const Adjustments& adjustments,
                                                    const img::Image& matching) {
    const Portrait& portrait = adjustments.portrait;
    const bool retouch = adjustments.retouch != FaceRetouch{};
    const double contrast = adjustments.clarity + adjustments.dehaze * 2 / 5;
    // Clarity and texture leave skin alone, so they need to know where it is.
    const bool skinOnly = adjustments.skinEven > 0 || std::max(contrast, adjustments.texture) > 0;
    if (!portrait.needsFaces() && !retouch && !skinOnly) return std::nullopt;
    std::optional<FaceMasks> masks =
        faceMask(matching, portrait.needsFaces() || retouch, portrait.only);
    if (masks && portrait.needsPeople())
        if (auto person = personMask(matching)) masks->person = *person;
    return masks;
}

}  // namespace ql
