// The editor's view state: zoom levels and panning, compare, and snapshots.
#include <QSettings>
#include <algorithm>
#include <array>
#include <cmath>

#include "EditorModel.h"

namespace ql {

// --- Zoom ----------------------------------------------------------------------------------

double EditorModel::fitLevel() const {
    double w = 6000, h = 4000;
    if (fullOutputSize_) {
        w = fullOutputSize_->width(), h = fullOutputSize_->height();
    } else if (source_) {
        w = source_->fullSize().width, h = source_->fullSize().height;
    }
    if (w <= 0 || h <= 0) return 0.25;
    const double available =
        zoomsTogether() ? canvasPixels.width() / 2.0 - 32 : canvasPixels.width() - 56.0;
    return std::min(available / w, (canvasPixels.height() - 56.0) / h);
}

void EditorModel::leaveZoom() {
    zoomed_ = false;
    zoomImage_ = {};
    zoomBeforeImage_ = {};
}

void EditorModel::setZoom(std::optional<double> level, std::optional<QPointF> at) {
    if (!level || !(*level > fitLevel() * 1.03)) {
        leaveZoom();
        emit changed();
        return;
    }
    if (!source_ || cropMode || (compareMode_ && !zoomsTogether())) return;
    if (at)
        zoomCenter_ = {std::clamp(at->x(), 0.0, 1.0), std::clamp(at->y(), 0.0, 1.0)};
    else if (!zoomed_)
        zoomCenter_ = {0.5, 0.5};
    zoomLevel_ = std::clamp(*level, 0.05, 8.0);
    zoomed_ = true;
    emit changed();
    requestZoomRender();
}

void EditorModel::toggleZoom(std::optional<QPointF> at) {
    if (zoomed_)
        setZoom(std::nullopt);
    else
        setZoom(1.0, at);
}

void EditorModel::zoomStep(bool up) {
    static constexpr std::array<double, 11> ladder{0.25, 0.33, 0.5, 0.67, 1, 1.5, 2, 3, 4, 6, 8};
    const double fit = fitLevel();
    const double level = zoomed_ ? zoomLevel_ : fit;
    if (up) {
        const auto next = std::find_if(ladder.begin(), ladder.end(),
                                       [&](double step) { return step > level * 1.01; });
        setZoom(next == ladder.end() ? 8.0 : *next);
        return;
    }
    std::optional<double> lower;
    for (double step : ladder)
        if (step < level * 0.99) lower = step;
    setZoom(lower && *lower > fit * 1.03 ? lower : std::nullopt);
}

void EditorModel::zoom(double level, QPointF keeping) {
    const QPointF centre = zoomed_ ? zoomCenter_ : QPointF(0.5, 0.5);
    const double s = (zoomed_ ? zoomLevel_ : fitLevel()) / std::max(level, 0.01);
    setZoom(level, keeping - s * (keeping - centre));
}

void EditorModel::panZoom(QPointF delta) {
    if (!fullOutputSize_ || !zoomed_) return;
    const double level = std::max(zoomLevel_, 0.01);
    zoomCenter_ = {
        std::clamp(zoomCenter_.x() + delta.x() / level / fullOutputSize_->width(), 0.0, 1.0),
        std::clamp(zoomCenter_.y() + delta.y() / level / fullOutputSize_->height(), 0.0, 1.0)};
    emit changed();
    requestZoomRender();
}

std::string EditorModel::zoomText() const {
    if (!zoomed_) return localized("Vừa khung");
    return std::to_string(int(std::lround(zoomLevel_ * 100))) + "%";
}

// --- Compare -------------------------------------------------------------------------------

Adjustments EditorModel::beforeAdjustments() const {
    if (compareSnapshot_) return compareSnapshot_->adjustments;
    // The same framing before and after.
    Adjustments before = Adjustments{}.taking({SettingsGroup::geometry}, adjustments_);
    before.profile = adjustments_.profile;
    return before;
}

void EditorModel::setCompareMode(bool on) {
    if (on == compareMode_) return;
    compareMode_ = on;
    if (on && !compareSideBySide_) leaveZoom();
    if (!on) {
        zoomBeforeImage_ = {};
        compareSnapshot_.reset();
    }
    emit changed();
    requestRender();
    if (zoomed_) requestZoomRender();
}

void EditorModel::setCompareSideBySide(bool sideBySide) {
    if (sideBySide == compareSideBySide_) return;
    compareSideBySide_ = sideBySide;
    QSettings().setValue("compare.sideBySide", sideBySide);
    if (!sideBySide) leaveZoom();
    emit changed();
}

void EditorModel::compare(bool sideBySide) {
    if (compareMode_ && compareSideBySide_ == sideBySide) {
        setCompareMode(false);
        return;
    }
    setCompareSideBySide(sideBySide);
    setCompareMode(true);
}

void EditorModel::compareWithSnapshot(const std::optional<EditSnapshot>& snapshot) {
    flushCommit();
    compareSnapshot_ = snapshot;
    if (!snapshot) {
        setCompareMode(false);
        return;
    }
    setCompareSideBySide(true);
    if (!compareMode_) {
        setCompareMode(true);
        return;
    }
    emit changed();
    requestRender();  // a new before side: its key differs from the one shown
    if (zoomed_) requestZoomRender();
}

std::string EditorModel::compareBeforeTitle() const {
    if (compareSnapshot_) return localized("BẢN: ") + compareSnapshot_->name;
    return localized("TRƯỚC");
}

// --- Snapshots -----------------------------------------------------------------------------

std::vector<EditSnapshot> EditorModel::snapshots() const {
    return source_ ? book_.snapshots(source_->url()) : std::vector<EditSnapshot>{};
}

void EditorModel::putSnapshots(std::vector<EditSnapshot> list) {
    if (!source_) return;
    book_.setSnapshots(std::move(list), source_->url());
    ++snapshotTick_;
    emit changed();
}

void EditorModel::addSnapshot(const std::string& name, const std::optional<Adjustments>& from) {
    if (!source_) return;
    flushCommit();
    std::vector<EditSnapshot> list = snapshots();
    QString trimmed = QString::fromStdString(name).trimmed();
    EditSnapshot s;
    s.id = Uuid::random();
    s.name = trimmed.isEmpty() ? localized("Bản ") + std::to_string(list.size() + 1)
                               : trimmed.toStdString();
    s.date = std::chrono::system_clock::now();
    s.adjustments = from.value_or(adjustments_);
    list.push_back(std::move(s));
    putSnapshots(std::move(list));
}

void EditorModel::updateSnapshot(const Uuid& id) {
    std::vector<EditSnapshot> list = snapshots();
    for (EditSnapshot& s : list)
        if (s.id == id) s.adjustments = adjustments_;
    putSnapshots(std::move(list));
}

void EditorModel::renameSnapshot(const Uuid& id, const std::string& name) {
    std::vector<EditSnapshot> list = snapshots();
    for (EditSnapshot& s : list)
        if (s.id == id) s.name = name;
    putSnapshots(std::move(list));
}

void EditorModel::duplicateSnapshot(const Uuid& id) {
    std::vector<EditSnapshot> list = snapshots();
    const auto it =
        std::find_if(list.begin(), list.end(), [&](const EditSnapshot& s) { return s.id == id; });
    if (it == list.end()) return;
    EditSnapshot copy = *it;
    copy.id = Uuid::random();
    list.insert(it + 1, std::move(copy));
    putSnapshots(std::move(list));
}

void EditorModel::deleteSnapshot(const Uuid& id) {
    std::vector<EditSnapshot> list = snapshots();
    std::erase_if(list, [&](const EditSnapshot& s) { return s.id == id; });
    if (compareSnapshot_ && compareSnapshot_->id == id) compareSnapshot_.reset();
    putSnapshots(std::move(list));
}

}  // namespace ql
