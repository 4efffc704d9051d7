// The editor's two render paths: the fitted preview and the zoomed crop of the full picture.
#include <cmath>

#include "ClipOverlay.h"
#include "EditorModel.h"
#include "imaging/ColorMatrix.h"
#include "imaging/LanczosScale.h"
#include "imaging/draw/QtImage.h"
#include "render/Develop.h"
#include "render/Geometry.h"

namespace ql {
namespace {

struct Rendered {
    QImage image;
    bool ok = false;
};

/// The person mask as the red tint of the canvas overlay.
QImage personTint(ImageSource& source, const Adjustments& edit, const img::Image& base) {
    const auto mask = source.personMask(base);
    if (!mask) return {};
    const img::Image aligned = Geometry::apply(edit, *mask, true);
    img::ColorMatrixParams m;
    m.red = {0.95f, 0, 0, 0}, m.green = {0.45f, 0, 0, 0}, m.blue = {0.1f, 0, 0, 0};
    m.alpha = {0.55f, 0, 0, 0};
    return img::toQImage(img::colorMatrix(aligned, m));
}

/// A crop of `image` at `level` around the normalised centre, at most `view` pixels; gives the
/// centre it really shows. Below 1 the picture is shrunk with Lanczos; above 1 its pixels are
/// repeated, so that magnified pixels stay hard, and only over what the crop needs.
QImage zoomCrop(const img::Image& image, double level, QPointF centre, QSize view, QPointF& shown) {
    if (image.empty()) return {};
    const bool shrink = level<1 - 0.001, magnify = level> 1 + 0.001;
    const img::Image source = shrink ? img::lanczosScale(image, {float(level), 1}) : image;
    const double scale = magnify ? level : 1;
    const int w = std::max(1, int(std::lround(source.width() * scale)));
    const int h = std::max(1, int(std::lround(source.height() * scale)));
    const int cw = std::min(w, view.width()), ch = std::min(h, view.height());
    const double cx = std::clamp(centre.x() * w, cw / 2.0, w - cw / 2.0);
    const double cy = std::clamp(centre.y() * h, ch / 2.0, h - ch / 2.0);
    const int x0 = int(std::floor(cx - cw / 2.0)), y0 = int(std::floor(cy - ch / 2.0));
    img::Image crop = img::Image::forOverwrite(cw, ch);
    for (int y = 0; y < ch; ++y) {
        const int sy = std::min(source.height() - 1, int((y0 + y) / scale));
        for (int x = 0; x < cw; ++x) {
            const int sx = std::min(source.width() - 1, int((x0 + x) / scale));
            std::copy_n(source.row(sy) + sx * 4, 4, crop.row(y) + x * 4);
        }
    }
    shown = {cx / w, cy / h};
    return img::toQImage(crop);
}

}  // namespace

struct EditorModel::RenderRequest {
    std::shared_ptr<ImageSource> source;
    Adjustments edit;
    bool uncropped = false;
    std::optional<Adjustments> before;
    bool clipping = false, personMask = false;
};

struct EditorModel::RenderResult {
    QImage display, before, clip, mask;
    std::optional<Histogram> histogram;
    bool uncropped = false;
    std::optional<Adjustments> beforeKey;
};

void EditorModel::requestRender() {
    if (!source_) return;
    if (zoomed_) requestZoomRender();
    if (rendering_) {
        renderPending_ = true;
        return;
    }
    rendering_ = true;
    ++rendersRun_;
    mostInFlight_ = std::max(mostInFlight_, ++inFlight_);
    RenderRequest r;
    r.source = source_;
    r.edit = showOriginal ? Adjustments{} : adjustments_;
    r.uncropped = cropMode && !showOriginal;
    if (compareMode_ && !r.uncropped) {
        const Adjustments before = beforeAdjustments();
        if (before != originalKey_ || originalImage_.isNull()) r.before = before;
    }
    r.clipping = showClipping;
    r.personMask = showPersonMask && !showOriginal;

    const Pipeline* pipeline = &pipeline_;
    onQueue<RenderResult>(
        [r, pipeline]() {
            RenderResult out;
            out.uncropped = r.uncropped;
            const img::Image base = r.source->previewBase(r.edit);
            out.display = img::toQImage(develop(*r.source, *pipeline, r.edit, base, !r.uncropped));
            if (out.display.isNull()) return out;
            out.histogram = Histogram::compute(out.display);
            if (r.clipping) out.clip = ClipOverlay::make(out.display);
            if (r.before) {
                const img::Image beforeBase = r.source->previewBase(*r.before);
                out.before =
                    img::toQImage(develop(*r.source, *pipeline, *r.before, beforeBase, true));
                out.beforeKey = r.before;
            }
            if (r.personMask) out.mask = personTint(*r.source, r.edit, base);
            return out;
        },
        [this, source = r.source](RenderResult out) {
            rendering_ = false;
            --inFlight_;
            if (source == source_ && !out.display.isNull()) {
                displayImage_ = std::move(out.display);
                displayIsUncropped_ = out.uncropped;
                if (out.beforeKey) {
                    originalImage_ = std::move(out.before);
                    originalKey_ = out.beforeKey;
                }
                clipOverlay_ = std::move(out.clip);
                maskOverlay_ = std::move(out.mask);
                histogram_ = std::move(out.histogram);
                emit changed();
                emit displayed();
            }
            if (renderPending_) {
                renderPending_ = false;
                requestRender();
            }
        });
}

void EditorModel::requestZoomRender() {
    if (!source_ || !zoomed_) return;
    if (zoomRendering_) {
        zoomPending_ = true;
        return;
    }
    zoomRendering_ = true;
    struct Zoom {
        QImage image, before;
        QPointF shown;
        std::optional<QSize> full;
    };
    const std::shared_ptr<ImageSource> source = source_;
    const Adjustments edit = showOriginal ? Adjustments{} : adjustments_;
    const std::optional<Adjustments> before =
        zoomsTogether() && !showOriginal ? std::optional(beforeAdjustments()) : std::nullopt;
    const QPointF centre = zoomCenter_;
    const QSize view = zoomViewPixels;
    const double level = zoomLevel_;
    const Pipeline* pipeline = &pipeline_;
    onQueue<Zoom>(
        [=]() {
            Zoom z;
            const auto side = [&](const Adjustments& a, QImage& into) {
                const img::Image full =
                    develop(*source, *pipeline, a, source->fullBaseCached(a), true);
                if (full.empty()) return;
                if (!z.full) z.full = QSize(full.width(), full.height());
                into = zoomCrop(full, level, centre, view, z.shown);
            };
            side(edit, z.image);
            if (before) {
                const QPointF shown = z.shown;  // both sides show the same centre
                side(*before, z.before);
                z.shown = shown;
            }
            return z;
        },
        [this, source, centre](Zoom z) {
            zoomRendering_ = false;
            if (source == source_ && zoomed_) {
                zoomImage_ = std::move(z.image);
                zoomBeforeImage_ = std::move(z.before);
                zoomImageCenter_ = z.shown;
                if (z.full) fullOutputSize_ = z.full;
                emit changed();
            }
            if (zoomPending_ || centre != zoomCenter_) {
                zoomPending_ = false;
                requestZoomRender();
            }
        });
}

}  // namespace ql
