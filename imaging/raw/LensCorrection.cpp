#include "LensCorrection.h"

#include <lensfun/lensfun.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

namespace ql::img {
namespace {

// Searches store their match scores in the database's own camera and lens records, so they run one
// at a time. Everything else only reads the records.
struct Database {
    lfDatabase db;
    bool loaded = false;
    std::mutex searching;
    Database() { loaded = db.Load() == LF_NO_ERROR; }
};

Database& database() {
    // Never destroyed: profiles point into it, and a thread may still correct at exit.
    static Database* const instance = new Database;
    return *instance;
}

// A result list of the database; frees the list, not the records it points to.
template <class T>
using ResultList = std::unique_ptr<const T*, void (*)(void*)>;

template <class T>
ResultList<T> adopt(const T** list) {
    return ResultList<T>(list, lf_free);
}

// The default string of a multi-language one: the database's canonical name, whatever the locale.
std::string text(const lfMLstr s) {
    return s ? s : "";
}

template <class T>
bool any(T* const* list) {
    return list && list[0];
}

// Clamps into the lens's range where the database gives one; 0 when a zoom's focal is unknown.
double usableFocal(const lfLens& lens, double focal) {
    const double lo = lens.MinFocal, hi = lens.MaxFocal;
    const bool range = lo > 0 && hi >= lo;
    if (!(focal > 0) || !std::isfinite(focal)) return range && lo == hi ? lo : 0;
    return range ? std::clamp(focal, lo, hi) : focal;
}

// Bilinear reading of one channel at (x, y) in pixel indices (centres on integers), the position
// clamped into the frame; a non-finite position reads the first pixel. Needs 2×2 pixels.
struct Sampler {
    const Image& image;
    float maxX, maxY;

    explicit Sampler(const Image& im)
        : image(im), maxX(float(im.width() - 1)), maxY(float(im.height() - 1)) {}

    // The four neighbours and the weights towards the second of each pair.
    struct Taps {
        const float *top, *bottom;
        float ax, ay;
    };

    Taps at(float x, float y) const {
        x = std::fmin(std::fmax(x, 0.0f), maxX);  // fmax turns NaN into 0
        y = std::fmin(std::fmax(y, 0.0f), maxY);
        const int x0 = std::min(int(x), image.width() - 2);
        const int y0 = std::min(int(y), image.height() - 2);
        return {image.row(y0) + size_t(x0) * 4, image.row(y0 + 1) + size_t(x0) * 4, x - float(x0),
                y - float(y0)};
    }

    static float read(const Taps& t, int c) {
        const float top = t.top[c] + t.ax * (t.top[c + 4] - t.top[c]);
        const float bottom = t.bottom[c] + t.ax * (t.bottom[c + 4] - t.bottom[c]);
        return top + t.ay * (bottom - top);
    }
};

}  // namespace

std::optional<LensProfile> LensProfile::find(const LensShot& shot) {
    if (shot.cameraModel.empty() || shot.lensModel.empty()) return std::nullopt;
    Database& d = database();
    if (!d.loaded) return std::nullopt;
    const std::lock_guard lock(d.searching);
    const auto cameras = adopt(d.db.FindCamerasExt(
        shot.cameraMake.empty() ? nullptr : shot.cameraMake.c_str(), shot.cameraModel.c_str()));
    if (!any(cameras.get())) return std::nullopt;
    // The camera narrows the lenses to its mount and to calibrations valid for its sensor size.
    const auto lenses = adopt(d.db.FindLenses(cameras.get()[0], nullptr, shot.lensModel.c_str()));
    if (!any(lenses.get())) return std::nullopt;
    return LensProfile(cameras.get()[0], lenses.get()[0]);
}

std::string LensProfile::lensName() const {
    return text(lens_->Model);
}

std::string LensProfile::cameraName() const {
    return text(camera_->Model);
}

bool LensProfile::hasDistortion() const {
    return any(lens_->CalibDistortion);
}

bool LensProfile::hasChromatic() const {
    return any(lens_->CalibTCA);
}

bool LensProfile::hasVignetting() const {
    return any(lens_->CalibVignetting);
}

Image lensCorrection(const Image& input, const LensCorrectionParams& p, const Execution& exec) {
    if (!p.profile || input.width() < 2 || input.height() < 2) return input;
    const lfLens& lens = *p.profile->lens_;
    const double aperture = p.shot.aperture;
    const bool apertureKnown = aperture > 0 && std::isfinite(aperture);
    const int wanted = (p.distortion ? LF_MODIFY_DISTORTION : 0) |
                       (p.chromatic ? LF_MODIFY_TCA : 0) |
                       (p.vignetting && apertureKnown ? LF_MODIFY_VIGNETTING : 0);
    const double focal = usableFocal(lens, p.shot.focalLength);
    if (!wanted || !(focal > 0)) return input;
    const double distance =
        p.shot.distance > 0 && std::isfinite(p.shot.distance) ? p.shot.distance : 1000;

    const int w = input.width(), h = input.height();
    lfModifier modifier(&lens, p.profile->camera_->CropFactor, w, h);
    const int active =
        modifier.Initialize(&lens, LF_PF_F32, float(focal), apertureKnown ? float(aperture) : 0,
                            float(distance), 1, lens.Type, wanted, false);
    const bool vignetting = active & LF_MODIFY_VIGNETTING;
    const bool geometry = active & (LF_MODIFY_DISTORTION | LF_MODIFY_TCA);
    if (!vignetting && !geometry) return input;
    if (exec.cancelled()) return {};

    // lensfun's frame runs from the first pixel centre (0) to the last (size - 1); ours from edge
    // to edge with centres at +0.5. Going through relative positions keeps a proxy's correction the
    // full frame's, where lensfun's own pixel grid would be half a proxy pixel off at the borders.
    const double sx = double(w - 1) / w, sy = double(h - 1) / h;

    // Vignetting belongs to the lens's image, so it is lifted before the geometry moves pixels.
    // lensfun computes the gain on a row of ones, between whose samples ours are interpolated: its
    // own path for RGBA floats clamps negative (out-of-gamut) colour to 0 and scales alpha.
    Image source = input;
    if (vignetting) {
        Image lifted = Image::forOverwrite(w, h);
        const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
            std::vector<float> gain(size_t(w), 1.0f);
            for (int y = y0; y < y1; ++y) {
                std::fill(gain.begin(), gain.end(), 1.0f);
                modifier.ApplyColorModification(gain.data(), 0, float((y + 0.5) * sy), w, 1,
                                                LF_CR_1(INTENSITY), int(w * sizeof(float)));
                const float* in = input.row(y);
                float* o = lifted.row(y);
                for (int x = 0; x < w; ++x, in += 4, o += 4) {
                    const double at = (x + 0.5) * sx;
                    const int i = std::min(int(at), w - 2);
                    const float t = float(at - i),
                                g = gain[size_t(i)] * (1 - t) + gain[size_t(i) + 1] * t;
                    o[0] = in[0] * g, o[1] = in[1] * g, o[2] = in[2] * g, o[3] = in[3];
                }
            }
        });
        if (!done) return {};
        source = lifted;
    }
    if (!geometry) return source;

    // One pixel per call: over longer runs lensfun takes a vectorised path whose approximate
    // reciprocal jitters the positions by up to a quarter pixel on a large frame.
    Image out = Image::forOverwrite(w, h);
    const Sampler sampler(source);
    const float backX = float(1 / sx), backY = float(1 / sy);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        alignas(16) float s[8];  // red, green, blue source (x, y)
        for (int y = y0; y < y1; ++y) {
            float* o = out.row(y);
            const float ly = float((y + 0.5) * sy);
            for (int x = 0; x < w; ++x, o += 4) {
                if (!modifier.ApplySubpixelGeometryDistortion(float((x + 0.5) * sx), ly, 1, 1, s)) {
                    std::memcpy(o, source.row(y) + size_t(x) * 4, 4 * sizeof(float));
                    continue;
                }
                for (int k = 0; k < 6; k += 2)
                    s[k] = s[k] * backX - 0.5f, s[k + 1] = s[k + 1] * backY - 0.5f;
                const Sampler::Taps green = sampler.at(s[2], s[3]);
                o[0] = Sampler::read(sampler.at(s[0], s[1]), 0);
                o[1] = Sampler::read(green, 1);
                o[2] = Sampler::read(sampler.at(s[4], s[5]), 2);
                o[3] = Sampler::read(green, 3);
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
