#include "Pipeline.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

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
#include "imaging/StretchedChannel.h"
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
Image whiteBalanceByMatrix(Image image, double temperature, double tint, const Execution& exec,
                           double gain = 1) {
    const double a = temperature * 0.005, b = tint * 0.004;
    const double r = std::exp(a + b), g = std::exp(-b), bl = std::exp(b - a);
    const double y = (0.2126 * r + 0.7152 * g + 0.0722 * bl) / gain;
    img::ColorMatrixParams m;
    m.red = {float(r / y), 0, 0, 0};
    m.green = {0, float(g / y), 0, 0};
    m.blue = {0, 0, float(bl / y), 0};
    return img::colorMatrix(std::move(image), m, exec);
}

Image exposure(Image image, double ev, const Execution& exec) {
    if (ev == 0) return image;
    return img::exposureAdjust(std::move(image), {float(ev)}, exec);
}

// Exposure, then shadows lifted and highlights pulled down (the other halves of both sliders
// live in the cube); the exposure rides along in the recovery's passes when there is one.
Image exposureAndRecovery(Image image, double ev, double highlights, double shadows, int longEdge,
                          const Execution& exec) {
    if (!(highlights < 0) && !(shadows > 0)) return exposure(std::move(image), ev, exec);
    img::HighlightShadowParams p;
    p.inputGain = std::exp2(float(ev));
    p.radius = float(longEdge * 0.006);
    p.highlightAmount = float(1 + std::min(highlights, 0.0) / 100);
    p.shadowAmount = float(std::max(shadows, 0.0) / 100);
    return img::highlightShadowAdjust(std::move(image), p, exec);
}

Image unsharp(Image image, double radius, double intensity, const Execution& exec, float gain = 1) {
    img::UnsharpMaskParams p;
    p.radius = float(radius);
    p.intensity = float(intensity);
    p.inputGain = gain;
    return img::unsharpMask(std::move(image), p, exec);
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
// leave skin alone; negative ones soften everything. Without skin to protect, both steps work in
// the input's own pixels when it was handed over.
Image localContrast(Image image, const Adjustments& a, const Image& skin, const Frame& f) {
    const double c = a.clarity + a.dehaze * 2 / 5;  // exact: clarity 10, dehaze −25 cancel
    const bool protect = std::max(c, a.texture) > 0 && !skin.empty();
    Image out = std::move(image);
    if (protect) image = out;
    if (c != 0) out = unsharp(std::move(out), f.longEdge * 0.015, c / 100 * 0.7, f.exec);
    if (a.texture != 0)
        out = unsharp(std::move(out), f.longEdge * 0.0025, a.texture / 100 * 0.8, f.exec);
    if (protect && !out.sharesPixelsWith(image))
        out = keepIfEmpty(img::blendWithMask(image, out, skin, f.exec), out);
    return out;
}

Image chromaNoise(Image image, double noiseReduction, const Frame& f) {
    const double k = std::min(noiseReduction, 100.0) / 100;
    return img::blurColourUnderLuminosity(std::move(image),
                                          float(f.longEdge * (k * 0.0022 + 0.0008)),
                                          float(std::min(k + 0.35, 1.0)), f.exec);
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
Image grain(Image image, double amount, int longEdge, const Execution& exec,
            const img::VignetteGains* under) {
    if (!(amount > 0) || image.empty()) return image;
    const int w = image.width(), h = image.height();
    std::function<void(int, float*)> gains;
    if (under && !under->neutral()) gains = [under, w](int y, float* g) { under->row(y, w, g); };
    const double a = std::min(amount, 1e6) * 0.5;
    // Monochrome, opaque; its mean sits 0.8·a below grey so grain darkens a little.
    const float gain = float(a), bias = float(0.5 - 1.3 * a);
    constexpr uint32_t seed = 0x6a7e11u;
    // Noise at the print's grain size, enlarged to the picture's resolution; at that size or
    // below, the noise's own pixels. Either way made as each row needs it.
    const double scale = std::max(longEdge / 2400.0, 1.0);
    if (scale == 1) {
        const img::RandomField field(seed);
        return img::softLightGrey(
            std::move(image),
            [&](int y, float* level) {
                for (int x = 0; x < w; ++x)
                    level[x] = field.at(x, y, 0) * gain + bias;
            },
            exec, gains);
    }
    const int nw = int(std::ceil(w / scale)) + 1, nh = int(std::ceil(h / scale)) + 1;
    const Image noise = img::randomGenerator({nw, nh, seed}, exec);
    if (noise.empty()) return image;
    // Enlarged bilinearly between the noise's pixel centres.
    const img::StretchedChannel levels(noise, 0, w, 1 / scale, 1 / scale);
    return img::softLightGrey(
        std::move(image),
        [&](int y, float* level) {
            levels.row(y, level);
            for (int x = 0; x < w; ++x)
                level[x] = level[x] * gain + bias;
        },
        exec, gains);
}

// Every value finite: a slider far outside its range must still give a defined picture.
double finiteOr0(double v) {
    return std::isfinite(v) ? v : 0;
}

}  // namespace

Image Pipeline::local(Image image, const LocalEdit& e, int longEdge, const Execution& exec) {
    if (e.isNeutral() || image.empty()) return image;
    const double ev = finiteOr0(e.exposure), highlights = finiteOr0(e.highlights),
                 shadows = finiteOr0(e.shadows);
    // Without recovery the exposure rides along in the next step that takes a gain, a pass
    // fewer; every step after it is linear in the colour or takes the gain first.
    const bool recovery = highlights < 0 || shadows > 0;
    if (recovery)
        image = exposureAndRecovery(std::move(image), ev, highlights, shadows, longEdge, exec);
    float gain = recovery ? 1 : std::exp2(float(ev));
    if (e.temperature != 0 || e.tint != 0) {
        image = whiteBalanceByMatrix(std::move(image), finiteOr0(e.temperature), finiteOr0(e.tint),
                                     exec, gain);
        gain = 1;
    }
    if (e.contrast != 0 || e.saturation != 0) {
        img::ColorControlsParams p;
        p.contrast = float(1 + finiteOr0(e.contrast) / 100 * 0.4);
        p.saturation = float(1 + finiteOr0(e.saturation) / 100);
        p.inputGain = gain;
        image = img::colorControls(std::move(image), p, exec);
        gain = 1;
    }
    if (e.clarity != 0) {
        image = unsharp(std::move(image), longEdge * 0.012, finiteOr0(e.clarity) / 100 * 0.6, exec,
                        gain);
        gain = 1;
    }
    return gain == 1 ? image : exposure(std::move(image), ev, exec);
}

Image Pipeline::addGrain(Image image, double amount, int longEdge, const Execution& exec) {
    return grain(std::move(image), amount, longEdge, exec, nullptr);
}

CubeData Pipeline::lutData(const LUTKey& key, const Execution& exec) const {
    std::lock_guard guard(lock_);
    if (lutCache_ && lutCache_->first == key) return lutCache_->second;
    auto bytes = std::make_shared<std::vector<float>>(ColorLUT::build(key, exec));
    if (exec.cancelled()) return {};
    lutCache_.emplace(key, bytes);
    return bytes;
}

Image Pipeline::apply(const Adjustments& adjustments, Image input, bool isRAW,
                      const CubeData& cameraLUT, bool cropping, const Image& personMask,
                      const FaceMasks* faceMask, const Image& subjectMask,
                      const Execution& exec) const {
    if (input.empty()) return input;
    const Adjustments adj = adjustments.withinRanges();
    // From here on `image` is the only handle this render holds: a stage given it with std::move
    // works in its pixels when the caller handed the input over too.
    Image image = LensCorrect::apply(std::exchange(input, {}), adj.lens, exec);
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
        image = whiteBalanceByMatrix(std::move(image), adj.temperature, adj.tint, exec);
    image =
        exposureAndRecovery(std::move(image), adj.exposure, adj.highlights, adj.shadows, L, exec);
    if (adj.profile == ColorProfile::camera && cameraLUT)
        image = img::colorCube(std::move(image), {17, cameraLUT, true}, exec);
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
            image = img::colorCube(std::move(image), {48, cube, true}, exec);
    }

    if (!person.empty() && (!adj.people.isNeutral() || !adj.background.isNeutral())) {
        // The background's edit, then the blend, work in pixels already held.
        Image inside = local(image, adj.people, L, exec);
        Image outside = local(std::move(image), adj.background, L, exec);
        image = img::blendWithMask(std::move(inside), std::move(outside), person, exec);
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
        image = img::noiseReduction(std::move(image), p, exec);
    }
    if (nr > 0) image = chromaNoise(std::move(image), nr, f);
    if (adj.sharpening > 0) {
        img::SharpenLuminanceParams p;
        p.sharpness = float(adj.sharpening / 100 * 0.6);
        p.radius = float(std::max(L / 2400.0 * 1.5, 1.0));
        image = img::sharpenLuminance(std::move(image), p, exec);
    }
    // With grain on, the vignette rides along in the grain's pass.
    const img::VignetteParams vignetting = vignetteOf(image, adj.vignette, adj.vignetteMidpoint);
    if (adj.grain > 0) {
        const img::VignetteGains under(vignetting);
        image = grain(std::move(image), adj.grain / 100, L, exec, &under);
    } else {
        image = keepIfEmpty(img::vignette(image, vignetting, exec), image);
    }
    if (!keepMask.empty()) image = BackdropRender::keep(image, keepMask, exec);
    if (image.width() != extent.width || image.height() != extent.height)
        image = keepIfEmpty(img::crop(image, extent, exec), image);
    return exec.cancelled() ? Image{} : image;
}

}  // namespace ql
