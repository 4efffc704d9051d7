// The canvas tools of the editor: levelling, turning, cropping, white balance, brushes, layers.
#include <QSettings>
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "EditorModel.h"
#include "analysis/AutoTone.h"
#include "imaging/AreaAverage.h"
#include "render/Geometry.h"
#include "render/Straighten.h"

namespace ql {
namespace {

constexpr std::array<std::string_view, 5> layerNames{"Chuyển sắc", "Vùng tròn", "Cọ vẽ",
                                                     "Vùng sáng", "Bầu trời"};

/// Mean linear r, g, b of a square around a normalised point.
std::array<double, 3> patchAverage(const img::Image& image, QPointF at) {
    const int half = std::max(2, int(std::lround(0.004 * image.width())));
    const int cx = std::clamp(int(at.x() * image.width()), 0, std::max(0, image.width() - 1));
    const int cy = std::clamp(int(at.y() * image.height()), 0, std::max(0, image.height() - 1));
    const img::Pixel p =
        img::areaAverage(image, {cx - half, cy - half, 2 * half + 1, 2 * half + 1});
    return {p.r, p.g, p.b};
}

std::array<double, 3> wholeAverage(const img::Image& image) {
    const img::Pixel p = img::areaAverage(image, {0, 0, image.width(), image.height()});
    return {p.r, p.g, p.b};
}

}  // namespace

void EditorModel::straighten(QPointF from, QPointF to, QSizeF) {
    straightenLineMode = false;
    emit changed();
    const double dx = to.x() - from.x(), dy = to.y() - from.y();
    if (std::hypot(dx, dy) <= 20) return;
    double angle = std::atan2(dy, dx) * 180 / M_PI;
    if (angle > 90) angle -= 180;
    if (angle < -90) angle += 180;
    if (angle > 45) angle -= 90;
    if (angle < -45) angle += 90;
    Adjustments a = adjustments_;
    a.rotation = std::round(std::clamp(a.rotation - angle, -45.0, 45.0) * 10) / 10;
    setAdjustments(a);
}

void EditorModel::rotateQuarter(bool clockwise) {
    Adjustments a = adjustments_;
    a.quarterTurns = (a.quarterTurns + (clockwise ? 1 : 3)) % 4;
    a.crop.reset();
    a.cropAspect = transposed(a.cropAspect);
    setAdjustments(a);
}

void EditorModel::flipHorizontal() {
    Adjustments a = adjustments_;
    a.flipHorizontal = !a.flipHorizontal;
    if (a.crop) a.crop->x = 1 - a.crop->x - a.crop->w;
    setAdjustments(a);
}

void EditorModel::setCropAspect(CropAspect aspect) {
    Adjustments a = adjustments_;
    a.cropAspect = aspect;
    a.crop.reset();
    setAdjustments(a);
}

void EditorModel::resetAll() {
    setAdjustments(Adjustments{});
}

void EditorModel::whiteBalanceFrom(const Adjustments& edit,
                                   std::function<std::array<double, 3>(const img::Image&)> measure,
                                   bool endsPicker) {
    if (!source_) return;
    const std::shared_ptr<ImageSource> source = source_;
    struct White {
        std::optional<img::TemperatureTint> raw;
        std::optional<std::pair<double, double>> plain;
    };
    onQueue<White>(
        [source, edit, measure]() {
            White w;
            if (source->isRAW()) {
                w.raw = source->rawNeutral({}, measure);
            } else if (const img::Image base = source->previewBase(edit); !base.empty()) {
                const auto rgb = measure(base);
                w.plain = WhiteBalance::neutralize(rgb[0], rgb[1], rgb[2]);
            }
            return w;
        },
        [this, source, endsPicker](White w) {
            if (endsPicker) whitePickerActive = false;
            if (source == source_) {
                Adjustments a = adjustments_;
                if (w.raw)
                    a.rawTemperature = std::round(w.raw->temperature),
                    a.rawTint = std::round(w.raw->tint);
                if (w.plain)
                    a.temperature = std::round(w.plain->first),
                    a.tint = std::round(w.plain->second);
                setAdjustments(a);
            }
            emit changed();
        });
}

void EditorModel::pickWhite(QPointF at) {
    const Adjustments edit = adjustments_;
    whiteBalanceFrom(
        edit,
        [edit, at](const img::Image& image) {
            return patchAverage(Geometry::apply(edit, image, true), at);
        },
        true);
}

void EditorModel::autoWhiteBalance() {
    whiteBalanceFrom(Adjustments{}, wholeAverage, false);
}

void EditorModel::autoStraighten() {
    if (!source_) return;
    const std::shared_ptr<ImageSource> source = source_;
    Adjustments unrotated = adjustments_;
    unrotated.rotation = 0;
    unrotated.crop.reset();
    unrotated.cropAspect = CropAspect::original;
    onQueue<std::optional<Straighten::Level>>(
        [source, unrotated]() -> std::optional<Straighten::Level> {
            const img::Image base = source->previewBase(unrotated);
            if (base.empty()) return std::nullopt;
            return Straighten::level(Geometry::apply(unrotated, base, false));
        },
        [this, source](std::optional<Straighten::Level> level) {
            if (source != source_) return;
            if (!level) {
                say(
                    localized("Không tìm thấy đủ đường thẳng để nắn. Hãy dùng thước nắn hoặc "
                              "thanh trượt."));
                return;
            }
            if (std::abs(level->angle - adjustments_.rotation) < 0.05) {
                say(localized("Ảnh đã thẳng."));
                return;
            }
            Adjustments a = adjustments_;
            a.rotation = level->angle;
            setAdjustments(a);
            char angle[32];
            std::snprintf(angle, sizeof angle, "%+.1f°", level->angle);
            say(localized("Đã nắn ") + angle + localized(". Bấm Ctrl+Z nếu muốn quay lại."));
        });
}

void EditorModel::stepBrush(bool up) {
    brushSize = std::clamp(up ? brushSize * 1.2 : brushSize / 1.2, 0.004, 0.25);
    emit changed();
}

void EditorModel::addLayer(MaskLayer::Kind kind) {
    Adjustments a = adjustments_;
    MaskLayer layer;
    layer.id = Uuid::random();
    layer.kind = kind;
    layer.name = localized(layerNames[size_t(kind)]) + " " + std::to_string(a.layers.size() + 1);
    selectedLayer = layer.id;
    a.layers.push_back(std::move(layer));
    QSettings().setValue("inspector.tab", "layers");
    setAdjustments(a);
}

void EditorModel::setStrokes(const Uuid& layer, std::vector<BrushStroke> strokes) {
    Adjustments a = adjustments_;
    if (layer == healKey) {
        a.heals = std::move(strokes);
    } else {
        for (MaskLayer& l : a.layers)
            if (l.id == layer) l.strokes = std::move(strokes);
    }
    ++strokeTick_;
    setAdjustments(a);
    flushCommit();  // a finished stroke is its own undo step
}

void EditorModel::addLayerStroke(const BrushStroke& stroke, const Uuid& layer) {
    const auto it = std::find_if(adjustments_.layers.begin(), adjustments_.layers.end(),
                                 [&](const MaskLayer& l) { return l.id == layer; });
    if (it == adjustments_.layers.end()) return;
    std::vector<BrushStroke> strokes = it->strokes;
    strokes.push_back(stroke);
    strokeRedo_[layer].clear();
    setStrokes(layer, std::move(strokes));
}

void EditorModel::addHeal(const BrushStroke& stroke) {
    // The healing source is chosen by the healer, which arrives with the retouch tools; until
    // then a stroke keeps the source it came with.
    std::vector<BrushStroke> heals = strokesOf(healKey);
    heals.push_back(stroke);
    strokeRedo_[healKey].clear();
    setStrokes(healKey, std::move(heals));
}

std::vector<BrushStroke> EditorModel::strokesOf(const Uuid& layer) const {
    if (layer == healKey) return adjustments_.heals;
    for (const MaskLayer& l : adjustments_.layers)
        if (l.id == layer) return l.strokes;
    return {};
}

void EditorModel::undoStroke(const Uuid& layer) {
    std::vector<BrushStroke> strokes = strokesOf(layer);
    if (strokes.empty()) return;
    strokeRedo_[layer].push_back(strokes.back());
    strokes.pop_back();
    setStrokes(layer, std::move(strokes));
}

void EditorModel::redoStroke(const Uuid& layer) {
    auto& redo = strokeRedo_[layer];
    if (redo.empty()) return;
    std::vector<BrushStroke> strokes = strokesOf(layer);
    strokes.push_back(redo.back());
    redo.pop_back();
    setStrokes(layer, std::move(strokes));
}

void EditorModel::escape() {
    if (cropMode) {
        cropMode = false;
    } else if (straightenLineMode) {
        straightenLineMode = false;
    } else if (whitePickerActive) {
        whitePickerActive = false;
    } else {
        // The portrait brush and clothes tools join this step when they arrive.
        healMode = false;
        selectedLayer.reset();
        showLayerMask = false;
        setCompareMode(false);
        showOriginal = false;
        leaveZoom();
    }
    emit changed();
    requestRender();
}

}  // namespace ql
