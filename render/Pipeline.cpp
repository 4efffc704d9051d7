#include "Pipeline.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "ColorLUT.h"
#include "Defringe.h"
#include "Geometry.h"
#include "LensCorrect.h"
#include "PendingStages.h"
#include "imaging/Blend.h"
#include "imaging/ColorControls.h"
#include "imaging/ColorCube.h"
#include "imaging/ColorMatrix.h"
#include "imaging/Composite.h"
#include "imaging/ExposureAdjust.h"
#include "imaging/GaussianBlur.h"
#include "imaging/HighlightShadowAdjust.h"
#include "imaging/NoiseReduction.h"
#include "imaging/RandomGenerator.h"
#include "imaging/SharpenLuminance.h"
#include "imaging/Transform.h"
#include "imaging/UnsharpMask.h"
#include "imaging/Vignette.h"

namespace ql {
namespace {

using img::Execution;
using img::Image;

// A stage whose filter gave nothing keeps its input.
Image keepIfEmpty(Image result, const Image& input) {
    return result.empty() ? input : result;
}

// Diagonal gains from the white-balance sliders of non-RAW pictures; luminance is kept, times
// `gain` (an exposure riding along).
Image whiteBalanceByMatrix(const Image& image, double temperature, double tint,
                           const Execution& exec, double gain = 1) {
    const double a = temperature * 0.005, b = tint * 0.004;
    const double r = std::exp(a + b), g = std::exp(-b), bl = std::exp(b - a);
    const double y = (0.2126 * r + 0.7152 * g + 0.0722 * bl) / gain;
    img::ColorMatrixParams m;
    m.red = {float(r / y), 0, 0, 0};
    m.green = {0, float(g / y), 0, 0};
    m.blue = {0, 0, float(bl / y), 0};
    return keepIfEmpty(img::colorMatrix(image, m, exec), image);
}

Image exposure(const Image& image, double ev, const Execution& exec) {
    if (ev == 0) return image;
    return keepIfEmpty(img::exposureAdjust(image, {float(ev)}, exec), image);
}

// Exposure, then shadows lifted and highlights pulled down (the other halves of both sliders
// live in the cube); the exposure rides along in the recovery's passes when there is one.
Image exposureAndRecovery(const Image& image, double ev, double highlights, double shadows,
                          int longEdge, const Execution& exec) {
    if (!(highlights < 0) && !(shadows > 0)) return exposure(image, ev, exec);
    img::HighlightShadowParams p;
    p.inputGain = std::exp2(float(ev));
    p.radius = float(longEdge * 0.006);
    p.highlightAmount = float(1 + std::min(highlights, 0.0) / 100);
    p.shadowAmount = float(std::max(shadows, 0.0) / 100);
    return keepIfEmpty(img::highlightShadowAdjust(image, p, exec), image);
}

Image unsharp(const Image& image, double radius, double intensity, const Execution& exec,
              float gain = 1) {
    img::UnsharpMaskParams p;
    p.radius = float(radius);
    p.intensity = float(intensity);
    p.inputGain = gain;
    return keepIfEmpty(img::unsharpMask(image, p, exec), image);
}

// The colour of `colourSource` under the luminosity of `image`.
Image luminosityOver(const Image& image, const Image& colourSource, const Execution& exec) {
    return keepIfEmpty(img::blend(image, colourSource, {img::BlendMode::luminosity}, exec), image);
}

Image blurred(const Image& image, double radius, const Execution& exec) {
    return keepIfEmpty(img::gaussianBlur(image, {float(radius), img::EdgeMode::clamp}, exec),
                       image);
}

// Stage helpers share one long edge L, taken after geometry and healing.
struct Frame {
    int longEdge = 0;
    const Execution& exec;
};

Image skinEvening(const Image& image, double amount, const Image& skin, const Frame& f) {
    if (!(amount > 0) || skin.empty()) return image;
    const Image colour = blurred(image, f.longEdge * 0.0035, f.exec);
    const Image evened = luminosityOver(image, colour, f.exec);
    const float k = float(std::min(amount, 100.0) / 100);
    img::ColorMatrixParams scale;
    scale.red = {k, 0, 0, 0};
    scale.green = {0, k, 0, 0};
    scale.blue = {0, 0, k, 0};
    scale.alpha = {0, 0, 0, 0};
    scale.bias = {0, 0, 0, 1};
    const Image mask = keepIfEmpty(img::colorMatrix(skin, scale, f.exec), skin);
    return keepIfEmpty(img::blendWithMask(evened, image, mask, f.exec), image);
}

// Clarity (with dehaze's share) at a wide radius, then texture at a fine one. Positive amounts
// leave skin alone; negative ones soften everything. Without skin to protect, the input is let
// go once the first step has its result, so a full-size picture holds one picture fewer.
Image localContrast(Image image, const Adjustments& a, const Image& skin, const Frame& f) {
    const double c = a.clarity + a.dehaze * 2 / 5;  // exact: clarity 10, dehaze −25 cancel
    const bool protect = std::max(c, a.texture) > 0 && !skin.empty();
    Image out = image;
    if (!protect) image = {};
    if (c != 0) out = unsharp(out, f.longEdge * 0.015, c / 100 * 0.7, f.exec);
    if (a.texture != 0) out = unsharp(out, f.longEdge * 0.0025, a.texture / 100 * 0.8, f.exec);
    if (protect && !out.sharesPixelsWith(image))
        out = keepIfEmpty(img::blendWithMask(image, out, skin, f.exec), out);
    return out;
}

Image chromaNoise(const Image& image, double noiseReduction, const Frame& f) {
    const double k = std::min(noiseReduction, 100.0) / 100;
    return keepIfEmpty(
        img::blurColourUnderLuminosity(image, float(f.longEdge * (k * 0.0022 + 0.0008)),
                                       float(std::min(k + 0.35, 1.0)), f.exec),
        image);
}

img::VignetteParams vignetteOf(const Image& image, double amount, double midpoint) {
    const double w = image.width(), h = image.height();
    img::VignetteParams p;
    p.centerX = float(w / 2);
    p.centerY = float(h / 2);
    p.radius = float(0.5 * std::sqrt(w * w + h * h) * (midpoint / 100 * 0.6 + 0.35));
    p.intensity = float(amount / -100);
    p.falloff = 0.6f;
    return p;
}

// Grain (Pipeline::addGrain), over the picture times `under`'s gains when given: a vignette
// riding along in the grain's pass.
Image grain(const Image& image, double amount, int longEdge, const Execution& exec,
            const img::VignetteGains* under) {
    if (!(amount > 0) || image.empty()) return image;
    std::function<void(int, float*)> gains;
    if (under && !under->neutral())
        gains = [&](int y, float* g) { under->row(y, image.width(), g); };
    const double a = std::min(amount, 1e6) * 0.5;
    // Monochrome, opaque; its mean sits 0.8·a below grey so grain darkens a little.
    const float gain = float(a), bias = float(0.5 - 1.3 * a);
    constexpr uint32_t seed = 0x6a7e11u;
    // Noise at the print's grain size, enlarged to the picture's resolution; at that size or
    // below, the noise's own pixels, made as each row needs them.
    const double scale = std::max(longEdge / 2400.0, 1.0);
    if (scale == 1) {
        const img::RandomField field(seed);
        return keepIfEmpty(img::softLightGrey(
                               image,
                               [&](int y, float* level) {
                                   for (int x = 0; x < image.width(); ++x)
                                       level[x] = field.at(x, y, 0) * gain + bias;
                               },
                               exec, gains),
                           image);
    }
    const int nw = int(std::ceil(image.width() / scale)) + 1;
    const int nh = int(std::ceil(image.height() / scale)) + 1;
    img::AffineParams p;
    p.a = p.d = scale;
    p.outWidth = image.width();
    p.outHeight = image.height();
    p.edges = img::EdgeMode::clamp;
    const Image noise = img::affineTransform(img::randomGenerator({nw, nh, seed}, exec), p, exec);
    if (noise.empty()) return image;
    return keepIfEmpty(img::softLightGrey(
                           image,
                           [&](int y, float* level) {
                               const float* n = noise.row(y);
                               for (int x = 0; x < image.width(); ++x)
                                   level[x] = n[4 * x] * gain + bias;
                           },
                           exec, gains),
                       image);
}

// Every value finite: a slider far outside its range must still give a defined picture.
double finiteOr0(double v) {
    return std::isfinite(v) ? v : 0;
}

}  // namespace

Image Pipeline::local(const Image& image, const LocalEdit& e, int longEdge, const Execution& exec) {
    if (e.isNeutral() || image.empty()) return image;
    const double ev = finiteOr0(e.exposure), highlights = finiteOr0(e.highlights),
                 shadows = finiteOr0(e.shadows);
    // Without recovery the exposure rides along in the next step that takes a gain, a pass
    // fewer; every step after it is linear in the colour or takes the gain first.
    const bool recovery = highlights < 0 || shadows > 0;
    Image out =
        recovery ? exposureAndRecovery(image, ev, highlights, shadows, longEdge, exec) : image;
    float gain = recovery ? 1 : std::exp2(float(ev));
    if (e.temperature != 0 || e.tint != 0) {
        out = whiteBalanceByMatrix(out, finiteOr0(e.temperature), finiteOr0(e.tint), exec, gain);
        gain = 1;
    }
    if (e.contrast != 0 || e.saturation != 0) {
        img::ColorControlsParams p;
        p.contrast = float(1 + finiteOr0(e.contrast) / 100 * 0.4);
        p.saturation = float(1 + finiteOr0(e.saturation) / 100);
        p.inputGain = gain;
        out = keepIfEmpty(img::colorControls(out, p, exec), out);
        gain = 1;
    }
    if (e.clarity != 0) {
        out = unsharp(out, longEdge * 0.012, finiteOr0(e.clarity) / 100 * 0.6, exec, gain);
        gain = 1;
    }
    return gain == 1 ? out : exposure(out, ev, exec);
}

Image Pipeline::addGrain(const Image& image, double amount, int longEdge, const Execution& exec) {
    return grain(image, amount, longEdge, exec, nullptr);
}

CubeData Pipeline::lutData(const LUTKey& key, const Execution& exec) const {
    std::lock_guard guard(lock_);
    if (lutCache_ && lutCache_->first == key) return lutCache_->second;
    auto bytes = std::make_shared<std::vector<float>>(ColorLUT::build(key, exec));
    if (exec.cancelled()) return {};
    lutCache_.emplace(key, bytes);
    return bytes;
}

Image Pipeline::apply(const Adjustments& adjustments, const Image& input, bool isRAW,
                      const CubeData& cameraLUT, bool cropping, const Image& personMask,
                      const FaceMasks* faceMask, const Image& subjectMask,
                      const Execution& exec) const {
    if (input.empty()) return input;
    const Adjustments adj = adjustments.withinRanges();
    Image image = LensCorrect::apply(input, adj.lens, exec);
    if (!adj.portrait.isNeutral())
        image = PortraitRetouch::beforeGeometry(image, adj.portrait,
                                                faceMask ? faceMask->info.get() : nullptr, exec);
    image = Geometry::apply(adj, image, cropping, exec);

    // Masks follow the picture's warps, never its shading.
    LensFix warpOnly = adj.lens;
    warpOnly.vignette = warpOnly.caRed = warpOnly.caBlue = 0;
    const auto align = [&](const Image& mask) {
        Image m = mask;
        if (adj.lens.distortion != 0) m = LensCorrect::apply(m, warpOnly, exec);
        return Geometry::apply(adj, m, cropping, exec);
    };
    const Image person = personMask.empty() ? Image{} : align(personMask);
    std::optional<FaceMasks> faces;
    if (faceMask) faces = faceMask->map(align);
    const Image noSkin;
    const Image& skin = faces ? faces->skin : noSkin;

    if (!adj.heals.empty()) image = Healer::apply(image, adj.heals, exec);
    const img::PixelRect extent{0, 0, image.width(), image.height()};
    const Frame f{image.longEdge(), exec};
    const int L = f.longEdge;

    if (!adj.restore.isNeutral()) image = Restorer::apply(adj.restore, image, L, skin, exec);
    if (adj.lens.purple > 0 || adj.lens.green > 0)
        image = Defringe::apply(image, adj.lens, L, exec);
    if (!isRAW && (adj.temperature != 0 || adj.tint != 0))
        image = whiteBalanceByMatrix(image, adj.temperature, adj.tint, exec);
    image = exposureAndRecovery(image, adj.exposure, adj.highlights, adj.shadows, L, exec);
    if (adj.profile == ColorProfile::camera && cameraLUT)
        image = keepIfEmpty(img::colorCube(image, {17, cameraLUT, true}, exec), image);
    if (faces) {
        image = skinEvening(image, adj.skinEven, skin, f);
        if (adj.retouch != FaceRetouch{})
            image = FaceParts::apply(image, adj.retouch, *faces, L, exec);
        if (!adj.portrait.isNeutral())
            image = PortraitRetouch::apply(image, adj.portrait, *faces, L, exec);
    }
    image = localContrast(std::move(image), adj, skin, f);

    const LUTKey key(adj);
    if (!key.isIdentity()) {
        if (const CubeData cube = lutData(key, exec))
            image = keepIfEmpty(img::colorCube(image, {48, cube, true}, exec), image);
    }

    if (!person.empty() && (!adj.people.isNeutral() || !adj.background.isNeutral())) {
        const Image inside = local(image, adj.people, L, exec);
        const Image outside = local(image, adj.background, L, exec);
        image = {};  // the two sides hold all that is still needed: one picture fewer at once
        image = img::blendWithMask(inside, outside, person, exec);
    }
    for (const MaskLayer& layer : adj.layers) {
        if (!layer.visible || layer.edit.isNeutral()) continue;
        const Image mask = MaskBuilder::mask(layer, extent, image, exec);
        if (mask.empty()) continue;
        image = keepIfEmpty(
            img::blendWithMask(local(image, layer.edit, L, exec), image, mask, exec), image);
    }
    Image keepMask;
    if (adj.backdrop && adj.backdrop->on && !subjectMask.empty()) {
        auto done = BackdropRender::apply(image, align(subjectMask), *adj.backdrop, exec);
        image = keepIfEmpty(done.image, image);
        if (adj.backdrop->kind == Backdrop::Kind::transparent) keepMask = done.keep;
    }

    const double nr = adj.noiseReduction;
    if (!isRAW && nr > 0) {
        img::NoiseReductionParams p;
        p.noiseLevel = float(nr / 100 * 0.06);
        p.sharpness = 0.4f;
        p.scale = float(L / 2400.0);
        image = keepIfEmpty(img::noiseReduction(image, p, exec), image);
    }
    if (nr > 0) image = chromaNoise(image, nr, f);
    if (adj.sharpening > 0) {
        img::SharpenLuminanceParams p;
        p.sharpness = float(adj.sharpening / 100 * 0.6);
        p.radius = float(std::max(L / 2400.0 * 1.5, 1.0));
        image = keepIfEmpty(img::sharpenLuminance(image, p, exec), image);
    }
    // With grain on, the vignette rides along in the grain's pass.
    const img::VignetteParams vignetting = vignetteOf(image, adj.vignette, adj.vignetteMidpoint);
    if (adj.grain > 0) {
        const img::VignetteGains under(vignetting);
        image = grain(image, adj.grain / 100, L, exec, &under);
    } else {
        image = keepIfEmpty(img::vignette(image, vignetting, exec), image);
    }
    if (!keepMask.empty()) image = BackdropRender::keep(image, keepMask, exec);
    if (image.width() != extent.width || image.height() != extent.height)
        image = keepIfEmpty(img::crop(image, extent, exec), image);
    return exec.cancelled() ? Image{} : image;
}

}  // namespace ql
