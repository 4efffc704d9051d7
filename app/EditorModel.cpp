#include "EditorModel.h"

#include <QCoreApplication>
#include <QPointer>
#include <QSettings>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <cmath>
#include <filesystem>

#include "ClipOverlay.h"
#include "analysis/AutoResult.h"
#include "analysis/Expert.h"
#include "analysis/PhotoStyleApply.h"
#include "edit/PathNames.h"
#include "imaging/LanczosScale.h"
#include "imaging/draw/QtImage.h"
#include "render/Exporter.h"
#include "render/Geometry.h"

namespace ql {

const Uuid EditorModel::healKey = *Uuid::parse("00000000-0000-0000-0000-00000000000A");

EditorModel::EditorModel(EditBook& book, QObject* parent)
    : QObject(parent),
      book_(book),
      analyzer_(std::make_unique<PhotoAnalyzer>(pipeline_)),
      queue_(std::make_unique<SerialQueue>()) {
    commitTimer_.setSingleShot(true);
    commitTimer_.setInterval(kCommitDelayMs);
    connect(&commitTimer_, &QTimer::timeout, this, [this] { flushCommit(); });
    const QSettings settings;
    compareSideBySide_ = settings.value("compare.sideBySide", false).toBool();
    const auto named =
        enumFromName<CompositionGuide>(settings.value("view.guide").toString().toStdString());
    guide = named.value_or(CompositionGuide::none);
}

EditorModel::~EditorModel() {
    // Jobs still queued and exports still writing finish before the members they read go away;
    // their results, queued to this object, are discarded with it.
    queue_.reset();
    for (QFuture<void>& f : exports_)
        f.waitForFinished();
}

void EditorModel::say(std::optional<std::string> text) {
    message_ = std::move(text);
    emit changed();
}

// --- The edit ------------------------------------------------------------------------------

void EditorModel::setAdjustments(const Adjustments& value) {
    if (value == adjustments_) return;
    adjustments_ = value;
    emit changed();
    if (loadingEdits_) return;
    requestRender();
    scheduleCommit();
}

void EditorModel::scheduleCommit() {
    commitTimer_.start();  // restarting it is the debounce
}

void EditorModel::flushCommit() {
    commitTimer_.stop();
    if (adjustments_ == committed_) return;
    undoStack_.push_back(committed_);
    if (undoStack_.size() > kUndoLimit) undoStack_.erase(undoStack_.begin());
    redoStack_.clear();
    committed_ = adjustments_;
    saveToBook();
    emit changed();
}

void EditorModel::saveToBook() {
    if (!source_) return;
    book_.save(adjustments_, source_->url());
    if (onSaved) onSaved(source_->url(), adjustments_);
}

void EditorModel::restore(const Adjustments& value) {
    loadingEdits_ = true;
    adjustments_ = value;
    committed_ = value;
    loadingEdits_ = false;
    requestRender();
    saveToBook();
    emit changed();
}

void EditorModel::undo() {
    stepHistory(undoStack_, redoStack_);
}

void EditorModel::redo() {
    stepHistory(redoStack_, undoStack_);
}

void EditorModel::stepHistory(std::vector<Adjustments>& from, std::vector<Adjustments>& to) {
    flushCommit();
    strokeRedo_.clear();
    if (from.empty()) return;
    const Adjustments popped = from.back();
    from.pop_back();
    to.push_back(adjustments_);
    restore(popped);
}

EditorModel::History EditorModel::history() const {
    std::vector<const Adjustments*> states;
    for (const Adjustments& a : undoStack_)
        states.push_back(&a);
    states.push_back(&adjustments_);
    for (auto it = redoStack_.rbegin(); it != redoStack_.rend(); ++it)
        states.push_back(&*it);
    History h;
    h.current = undoStack_.size();
    for (size_t i = 0; i < states.size(); ++i)
        h.labels.push_back(i == 0 ? localized("Lúc mở ảnh") : states[i]->changes(*states[i - 1]));
    return h;
}

void EditorModel::jumpHistory(size_t index) {
    std::vector<Adjustments> states = undoStack_;
    states.push_back(adjustments_);
    states.insert(states.end(), redoStack_.rbegin(), redoStack_.rend());
    if (index >= states.size() || index == undoStack_.size()) return;
    undoStack_.assign(states.begin(), states.begin() + std::ptrdiff_t(index));
    redoStack_.assign(states.rbegin(), states.rend() - std::ptrdiff_t(index) - 1);
    strokeRedo_.clear();
    restore(states[index]);
}

// --- Opening -------------------------------------------------------------------------------

void EditorModel::open(const std::string& path) {
    flushCommit();
    isLoading_ = true;
    message_.reset();
    emit changed();
    using Opened = std::shared_ptr<ImageSource>;
    onQueue<Opened>(
        [path]() -> Opened {
            try {
                return std::make_shared<ImageSource>(path, 2400);
            } catch (const std::exception&) {
                return nullptr;
            }
        },
        [this, path](Opened opened) {
            isLoading_ = false;
            if (!opened) {
                say(localized("Không mở được ảnh “") + fileName(path) +
                    localized("”. Có thể định dạng này chưa được hỗ trợ."));
                return;
            }
            // The previous photo stayed open while this one loaded: an edit made meanwhile
            // is saved to it before it goes, whether or not its debounce has run out.
            flushCommit();
            loadingEdits_ = true;
            source_ = std::move(opened);
            adjustments_ = book_.load(source_->url()).value_or(Adjustments{});
            committed_ = adjustments_;
            undoStack_.clear(), redoStack_.clear(), strokeRedo_.clear();
            showOriginal = whitePickerActive = cropMode = straightenLineMode = false;
            selectedLayer.reset();
            report_.reset(), reportAnalysis_.reset(), styleThumbs_.clear();
            showClipping = false, compareMode_ = false, showLayerMask = false, showFaces = false;
            compareSnapshot_.reset();
            displayImage_ = originalImage_ = clipOverlay_ = maskOverlay_ = layerOverlay_ = {};
            originalKey_.reset();
            histogram_.reset();
            leaveZoom();
            fullOutputSize_.reset();
            loadingEdits_ = false;
            emit changed();
            analyze();
            requestRender();
            runAutorun();
        });
}

void EditorModel::runAutorun() {
    const QByteArray autorun = qgetenv("QUILLARIUM_AUTORUN");
    if (autorun == "auto") {
        autoAdjust();
    } else if (autorun == "crop") {
        cropMode = true;
        emit changed();
    } else if (autorun.startsWith("zoom")) {
        const QList<QByteArray> parts = autorun.mid(4).split(',');
        std::vector<double> numbers;
        for (const QByteArray& p : parts) {
            bool ok = false;
            const double v = p.trimmed().toDouble(&ok);
            if (ok) numbers.push_back(v);
        }
        if (!numbers.empty())
            setZoom(numbers[0], numbers.size() >= 3
                                    ? std::optional<QPointF>(QPointF(numbers[1], numbers[2]))
                                    : std::nullopt);
    }
    // "ai" starts the advisor, which comes with the agents.
}

// --- Analysis and automatic editing ----------------------------------------------------------

namespace {

/// The photo in every look over its automatic correction, small. All of them start from one
/// shrunk copy of the current base: a RAW's looks keep the current white balance, because a new
/// one would mean a development per look and would push the editor's proxy out of its cache.
std::map<PhotoStyle, QImage> styleThumbnails(ImageSource& source, const Pipeline& pipeline,
                                             const PhotoAnalysis& analysis,
                                             const Adjustments& current) {
    const img::Image base = source.previewBase(current);
    if (base.empty()) return {};
    const double scale = std::min(1.0, double(EditorModel::kStyleThumbLongEdge) / base.longEdge());
    const img::Image small = img::lanczosScale(base, {float(scale), 1});
    std::map<PhotoStyle, QImage> thumbs;
    const PhotoFacts facts = PhotoFacts::of(source);
    for (const PhotoStyle style : allCases<PhotoStyle>()) {
        Adjustments edit = current;
        edit.style = style;
        edit.styleStrength = 100;
        edit = autoResult(edit, analysis, facts);
        edit.rawTemperature = current.rawTemperature;
        edit.rawTint = current.rawTint;
        // Masks are left out: at this size a look reads the same without the people's edit.
        thumbs[style] = img::toQImage(
            pipeline.apply(edit, small, source.isRAW(), source.cameraLUT(), true, {}, nullptr, {}));
    }
    return thumbs;
}

}  // namespace

void EditorModel::analyze() {
    if (!source_) return;
    isAnalyzing_ = true;
    emit changed();
    const std::shared_ptr<ImageSource> source = source_;
    PhotoAnalyzer* analyzer = analyzer_.get();
    const Pipeline* pipeline = &pipeline_;
    const Adjustments current = adjustments_;
    struct Found {
        PhotoReport report;
        PhotoAnalysis analysis;
        std::map<PhotoStyle, QImage> thumbs;
    };
    onQueue<std::optional<Found>>(
        [source, analyzer, pipeline, current]() -> std::optional<Found> {
            const auto analysis = analyzer->analysis(*source, false);
            if (!analysis) return std::nullopt;
            return Found{Diagnosis::make(*analysis, PhotoFacts::of(*source)), *analysis,
                         styleThumbnails(*source, *pipeline, *analysis, current)};
        },
        [this, source](std::optional<Found> found) {
            if (source != source_) return;
            isAnalyzing_ = false;
            if (found)
                setReport(std::move(found->report), std::move(found->analysis),
                          std::move(found->thumbs));
            if (const QByteArray style = qgetenv("QUILLARIUM_STYLE"); !style.isEmpty())
                if (const auto s = enumFromName<PhotoStyle>(style.toStdString()))
                    applyStyle(*s, 100);
            if (!qgetenv("QUILLARIUM_CLIP").isEmpty()) showClipping = true;
            if (!qgetenv("QUILLARIUM_MASK").isEmpty()) showPersonMask = true;
            if (const QByteArray compare = qgetenv("QUILLARIUM_COMPARE"); !compare.isEmpty()) {
                setCompareMode(true);
                if (compare == "zoom") setZoom(1.0);
            }
            emit changed();
            requestRender();
        });
}

void EditorModel::setReport(PhotoReport report, PhotoAnalysis analysis,
                            std::map<PhotoStyle, QImage> thumbs) {
    report_ = std::move(report);
    reportAnalysis_ = std::move(analysis);
    styleThumbs_ = std::move(thumbs);
}

void EditorModel::withAnalysis(std::function<void(const PhotoAnalysis&)> use) {
    if (!source_) return;
    const std::shared_ptr<ImageSource> source = source_;
    PhotoAnalyzer* analyzer = analyzer_.get();
    onQueue<std::optional<PhotoAnalysis>>(
        [source, analyzer] { return analyzer->analysis(*source, false); },
        [this, source, use](std::optional<PhotoAnalysis> analysis) {
            if (source != source_) return;
            if (!analysis) {
                say(localized("Không đọc được ảnh để phân tích."));
                return;
            }
            use(*analysis);
        });
}

void EditorModel::autoAdjust() {
    if (!source_) return;
    isAutoRunning_ = true;
    emit changed();
    withAnalysis([this](const PhotoAnalysis& analysis) {
        setAdjustments(autoResult(adjustments_, analysis, PhotoFacts::of(*source_)));
        say(localized("Đã chỉnh tự động. Bấm Ctrl+Z nếu muốn quay lại."));
    });
    // Queued after the analysis, so it lands after its result: the mark clears whatever
    // happened, a result, a failure, or another photo opened meanwhile.
    onQueue<bool>([] { return true; },
                  [this](bool) {
                      isAutoRunning_ = false;
                      emit changed();
                  });
}

void EditorModel::applyStyle(PhotoStyle style, double strength) {
    withAnalysis([this, style, strength](const PhotoAnalysis& analysis) {
        Adjustments base = adjustments_;
        base.style = style;
        base.styleStrength = strength;
        setAdjustments(autoResult(base, analysis, PhotoFacts::of(*source_)));
    });
}

// --- Export --------------------------------------------------------------------------------

std::string EditorModel::exportName() const {
    if (!source_) return {};
    return baseName(source_->url()) + "-chinh." + std::string(fileExtension(exportOptions.format));
}

void EditorModel::exportTo(const std::string& path, std::function<void(bool)> done) {
    if (!source_) {
        if (done) done(false);
        return;
    }
    flushCommit();
    isExporting_ = true;
    emit changed();
    // Its own thread: a full-size export takes seconds, and the canvas keeps rendering meanwhile.
    const std::shared_ptr<ImageSource> source = source_;
    const Adjustments edit = adjustments_;
    const ExportOptions options = exportOptions;
    const PhotoMeta meta = book_.meta(source_->url());
    QPointer<EditorModel> self(this);
    const Pipeline* pipeline = &pipeline_;
    std::erase_if(exports_, [](const QFuture<void>& f) { return f.isFinished(); });
    exports_.push_back(QtConcurrent::run([=] {
        bool written = true;
        try {
            Exporter::exportImage(*source, edit, *pipeline, options, path, std::nullopt, {}, meta);
        } catch (const std::exception&) {
            written = false;
        }
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [self, written, done] {
                if (self) {
                    self->isExporting_ = false;
                    if (!written)
                        self->say(localized("Không lưu được ảnh. Hãy kiểm tra lại thư mục lưu."));
                    emit self->changed();
                }
                if (done) done(written);
            },
            Qt::QueuedConnection);
    }));
}

}  // namespace ql
