// The live session on the one open photo: its edit, the pixels on screen, undo and redo, the
// saves into the workspace's EditBook, and the view state of the canvas. Lives on the main
// thread; renders, loads and analyses run on its serial render queue and come back as queued
// calls that first check that the photo is still the one open.
#pragma once

#include <QFuture>
#include <QImage>
#include <QObject>
#include <QPointF>
#include <QSize>
#include <QTimer>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "analysis/Diagnosis.h"
#include "analysis/Histogram.h"
#include "analysis/PhotoAnalyzer.h"
#include "analysis/Suggestion.h"
#include "edit/EditBook.h"
#include "edit/ExportRecipe.h"
#include "edit/Uuid.h"
#include "imaging/SerialQueue.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"

namespace ql {

enum class CompositionGuide { none, thirds, center, golden, diagonals };

template <>
struct EnumNames<CompositionGuide> {
    static constexpr std::array<std::string_view, 5> names{"none", "thirds", "center", "golden",
                                                           "diagonals"};
};

class EditorModel : public QObject {
    Q_OBJECT

  public:
    explicit EditorModel(EditBook& book, QObject* parent = nullptr);
    ~EditorModel() override;

    // --- The open photo and its edit -----------------------------------------------------
    /// Opens a photo on the render queue; an unreadable one keeps the session as it was and
    /// says so in `message`.
    void open(const std::string& path);
    const ImageSource* source() const { return source_.get(); }
    std::string url() const { return source_ ? source_->url() : std::string(); }
    const Adjustments& adjustments() const { return adjustments_; }
    /// The one road for every change. An equal value does nothing; otherwise a render is asked
    /// and the commit timer restarts.
    void setAdjustments(const Adjustments& value);

    // --- Pixels ----------------------------------------------------------------------------
    void requestRender();
    void requestZoomRender();
    const QImage& displayImage() const { return displayImage_; }
    const std::optional<Histogram>& histogram() const { return histogram_; }
    const QImage& originalImage() const { return originalImage_; }
    const QImage& clipOverlay() const { return clipOverlay_; }
    const QImage& maskOverlay() const { return maskOverlay_; }
    bool displayIsUncropped() const { return displayIsUncropped_; }
    bool rendering() const { return rendering_; }
    /// Preview renders run since the session began: what a drag costs.
    int rendersRun() const { return rendersRun_; }
    /// The most preview renders ever dispatched and not yet published at one time.
    int mostRendersInFlight() const { return mostInFlight_; }

    bool showOriginal = false;
    bool showClipping = false;
    bool showFaces = false;
    double compareSplit = 0.5;  // where the split line stands, 0…1
    bool showPersonMask = false;
    bool cropMode = false;
    bool straightenLineMode = false;
    bool whitePickerActive = false;
    bool isLoading() const { return isLoading_; }
    bool isExporting() const { return isExporting_; }
    const std::optional<std::string>& message() const { return message_; }
    CompositionGuide guide = CompositionGuide::none;
    ExportOptions exportOptions{ExportFormat::jpeg, 92, false, 2048};

    // --- Zoom ------------------------------------------------------------------------------
    bool zoomed() const { return zoomed_; }
    double zoomLevel() const { return zoomLevel_; }
    QPointF zoomCenter() const { return zoomCenter_; }
    QSize canvasPixels{1600, 1000};
    QSize zoomViewPixels{1600, 1000};
    const QImage& zoomImage() const { return zoomImage_; }
    const QImage& zoomBeforeImage() const { return zoomBeforeImage_; }
    QPointF zoomImageCenter() const { return zoomImageCenter_; }
    std::optional<QSize> fullOutputSize() const { return fullOutputSize_; }
    double fitLevel() const;
    /// Nothing, or a level not above 1.03 × fit, leaves zoom.
    void setZoom(std::optional<double> level, std::optional<QPointF> at = std::nullopt);
    void toggleZoom(std::optional<QPointF> at = std::nullopt);
    void zoomStep(bool up);
    /// Zooms to `level` keeping the normalised point `keeping` where it is on screen.
    void zoom(double level, QPointF keeping);
    void panZoom(QPointF delta);
    std::string zoomText() const;
    bool zoomsTogether() const { return compareMode_ && compareSideBySide_ && !cropMode; }

    // --- Commit and undo -----------------------------------------------------------------
    static constexpr int kCommitDelayMs = 450;
    static constexpr size_t kUndoLimit = 200;
    /// Saves a pending change now: one gesture is one undo step.
    void flushCommit();
    void undo();
    void redo();
    bool canUndo() const { return !undoStack_.empty() || adjustments_ != committed_; }
    bool canRedo() const { return !redoStack_.empty(); }
    struct History {
        std::vector<std::string> labels;
        size_t current = 0;
    };
    History history() const;
    void jumpHistory(size_t index);
    /// Called after each save with the photo and its edit.
    std::function<void(const std::string&, const Adjustments&)> onSaved;

    // --- Compare and snapshots -----------------------------------------------------------
    bool compareMode() const { return compareMode_; }
    bool compareSideBySide() const { return compareSideBySide_; }
    void setCompareMode(bool on);
    void setCompareSideBySide(bool sideBySide);
    /// The same layout twice turns compare off.
    void compare(bool sideBySide);
    void compareWithSnapshot(const std::optional<EditSnapshot>& snapshot);
    std::string compareBeforeTitle() const;
    /// The snapshot's edit, or the plain edit with this edit's framing.
    Adjustments beforeAdjustments() const;
    void addSnapshot(const std::string& name, const std::optional<Adjustments>& from = {});
    void updateSnapshot(const Uuid& id);
    void renameSnapshot(const Uuid& id, const std::string& name);
    void duplicateSnapshot(const Uuid& id);
    void deleteSnapshot(const Uuid& id);
    int snapshotTick() const { return snapshotTick_; }

    // --- Tools ---------------------------------------------------------------------------
    /// Levels the picture along a line drawn on the display (points of a view of `displaySize`).
    void straighten(QPointF from, QPointF to, QSizeF displaySize);
    void rotateQuarter(bool clockwise);
    void flipHorizontal();
    void setCropAspect(CropAspect aspect);
    void resetAll();
    /// White balance from a patch around a normalised point of the display; then the picker ends.
    void pickWhite(QPointF at);
    void autoWhiteBalance();
    void autoStraighten();
    double brushSize = 0.04;  // of the picture
    bool brushErase = false;
    bool healMode = false;
    void stepBrush(bool up);
    std::optional<Uuid> selectedLayer;
    bool showLayerMask = false;
    void addLayer(MaskLayer::Kind kind);
    void addLayerStroke(const BrushStroke& stroke, const Uuid& layer);
    void addHeal(const BrushStroke& stroke);
    void undoStroke(const Uuid& layer);
    void redoStroke(const Uuid& layer);
    /// The heal strokes' entry in the redo lists.
    static const Uuid healKey;
    int strokeTick() const { return strokeTick_; }
    /// Ends one mode, the innermost first.
    void escape();

    // --- Analysis and automatic editing --------------------------------------------------
    void analyze();
    bool isAnalyzing() const { return isAnalyzing_; }
    const std::optional<PhotoReport>& report() const { return report_; }
    const std::optional<PhotoAnalysis>& reportAnalysis() const { return reportAnalysis_; }
    /// Each look on this photo, over its automatic correction, as a small picture.
    const std::map<PhotoStyle, QImage>& styleThumbs() const { return styleThumbs_; }
    static constexpr int kStyleThumbLongEdge = 240;
    /// The Auto command: the analysis's correction in the current look.
    void autoAdjust();
    /// A look at a strength in percent over the analysis's correction.
    void applyStyle(PhotoStyle style, double strength);
    bool isAutoRunning() const { return isAutoRunning_; }

    // --- Export ----------------------------------------------------------------------------
    /// The name offered for saving the edited photo: its base name, "-chinh." and the format's
    /// extension.
    std::string exportName() const;
    /// Writes the edited photo to `path` with `exportOptions` off the main thread, `isExporting`
    /// meanwhile; a failure says so in `message`. `done` hears whether the file was written.
    void exportTo(const std::string& path, std::function<void(bool)> done = {});

    /// Waits until the render queue has run everything given so far (tests, headless use).
    void waitForQueue() { queue_->waitIdle(); }

  signals:
    /// Any observed value changed.
    void changed();
    /// A new preview was published.
    void displayed();

  private:
    struct RenderRequest;
    struct RenderResult;
    void scheduleCommit();
    void restore(const Adjustments& value);
    /// Undo and redo: the newest state of `from` becomes the edit, the edit goes onto `to`.
    void stepHistory(std::vector<Adjustments>& from, std::vector<Adjustments>& to);
    void saveToBook();
    void say(std::optional<std::string> text);
    void setStrokes(const Uuid& layer, std::vector<BrushStroke> strokes);
    /// The strokes of a layer, or the heal strokes for `healKey`.
    std::vector<BrushStroke> strokesOf(const Uuid& layer) const;
    /// Runs `use` with the open photo's analysis on the main thread, or says it can't be made.
    void withAnalysis(std::function<void(const PhotoAnalysis&)> use);
    /// Sets the white balance that makes `measure` of the picture neutral (the RAW decoder's
    /// kelvin and tint, or the sliders of a non-RAW photo).
    void whiteBalanceFrom(const Adjustments& edit,
                          std::function<std::array<double, 3>(const img::Image&)> measure,
                          bool endsPicker);
    void leaveZoom();
    void setReport(PhotoReport report, PhotoAnalysis analysis, std::map<PhotoStyle, QImage> thumbs);
    void runAutorun();
    std::vector<EditSnapshot> snapshots() const;
    void putSnapshots(std::vector<EditSnapshot> list);
    /// Runs `work` on the render queue and `done` with its result back on the main thread. The
    /// destructor drains the queue before the object goes, and Qt drops calls queued to an
    /// object that is gone, so `this` outlives every job.
    template <typename Result>
    void onQueue(std::function<Result()> work, std::function<void(Result)> done) {
        queue_->async([self = this, work = std::move(work), done = std::move(done)] {
            auto result = std::make_shared<Result>(work());
            QMetaObject::invokeMethod(
                self, [done, result] { done(std::move(*result)); }, Qt::QueuedConnection);
        });
    }

    EditBook& book_;
    Pipeline pipeline_;
    std::shared_ptr<ImageSource> source_;
    Adjustments adjustments_, committed_;
    std::vector<Adjustments> undoStack_, redoStack_;
    bool loadingEdits_ = false;
    QTimer commitTimer_;

    QImage displayImage_, originalImage_, clipOverlay_, maskOverlay_, layerOverlay_;
    std::optional<Adjustments> originalKey_;
    std::optional<Histogram> histogram_;
    bool displayIsUncropped_ = false;
    bool rendering_ = false, renderPending_ = false;
    int rendersRun_ = 0, inFlight_ = 0, mostInFlight_ = 0;
    bool isLoading_ = false, isExporting_ = false;
    std::optional<std::string> message_;

    bool zoomed_ = false;
    double zoomLevel_ = 1;
    QPointF zoomCenter_{0.5, 0.5}, zoomImageCenter_{0.5, 0.5};
    QImage zoomImage_, zoomBeforeImage_;
    std::optional<QSize> fullOutputSize_;
    bool zoomRendering_ = false, zoomPending_ = false;

    bool compareMode_ = false, compareSideBySide_ = false;
    std::optional<EditSnapshot> compareSnapshot_;
    int snapshotTick_ = 0;

    std::map<Uuid, std::vector<BrushStroke>> strokeRedo_;
    int strokeTick_ = 0;

    bool isAnalyzing_ = false, isAutoRunning_ = false;
    std::optional<PhotoReport> report_;
    std::optional<PhotoAnalysis> reportAnalysis_;
    std::map<PhotoStyle, QImage> styleThumbs_;
    // One for the session, used only on the render queue: its one-entry cache keeps the open
    // photo's analysis, and jobs queued for an earlier photo may still be running with it.
    std::unique_ptr<PhotoAnalyzer> analyzer_;

    std::vector<QFuture<void>> exports_;
    // Last: it is destroyed first, so no job outlives what it uses.
    std::unique_ptr<SerialQueue> queue_;
};

}  // namespace ql
