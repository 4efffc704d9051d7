// The editor session on real photos with a real event loop: the setter, the debounced commit,
// undo, photo switches, stale renders, zoom and compare, snapshots and tools.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "app/EditorModel.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

const std::string samples = QL_SAMPLES_DIR;

class EditorSession : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        static int argc = 1;
        static char name[] = "ql_app_tests";
        static char* argv[] = {name, nullptr};
        if (!QCoreApplication::instance()) new QCoreApplication(argc, argv);
        QCoreApplication::setOrganizationName("QuillariumTests");
    }
    void SetUp() override {
        ::setenv("XDG_DATA_HOME", dir.file("data").c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", dir.file("config").c_str(), 1);
        language::set(AppLanguage::vi);
        editor = std::make_unique<EditorModel>(book);
        QObject::connect(editor.get(), &EditorModel::displayed, [this] { ++displays; });
    }
    void TearDown() override { editor.reset(); }

    /// Runs the event loop until `done` holds or `ms` pass.
    bool until(const std::function<bool()>& done, int ms = 20000) {
        QElapsedTimer t;
        t.start();
        while (!done() && t.elapsed() < ms) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            QThread::msleep(2);
        }
        return done();
    }
    /// Lets the loop run for `ms`.
    void pump(int ms) {
        until([] { return false; }, ms);
    }
    void openAndSettle(const std::string& path) {
        const int before = displays;
        editor->open(path);
        ASSERT_TRUE(until([&] { return displays > before && !editor->rendering(); }));
        editor->waitForQueue();
        pump(50);
    }
    Adjustments with(double exposure) {
        Adjustments a = editor->adjustments();
        a.exposure = exposure;
        return a;
    }

    testing::TempDir dir;
    EditBook book;
    std::unique_ptr<EditorModel> editor;
    int displays = 0;
};

TEST_F(EditorSession, EqualValuesDoNothingAndAGestureIsOneUndoStep) {
    openAndSettle(samples + "/three_men_night_flash.jpg");
    const int renders = editor->rendersRun();
    editor->setAdjustments(editor->adjustments());
    pump(600);
    EXPECT_EQ(editor->rendersRun(), renders);
    EXPECT_FALSE(editor->canUndo());

    for (double e : {0.1, 0.2, 0.3, 0.4, 0.5})
        editor->setAdjustments(with(e));
    EXPECT_FALSE(book.load(editor->url()));  // nothing saved inside the debounce
    pump(700);
    const auto history = editor->history();
    ASSERT_EQ(history.labels.size(), 2u);
    EXPECT_EQ(history.labels[0], "Lúc mở ảnh");
    EXPECT_EQ(history.current, 1u);
    ASSERT_TRUE(book.load(editor->url()));
    EXPECT_DOUBLE_EQ(book.load(editor->url())->exposure, 0.5);

    editor->undo();
    EXPECT_EQ(editor->adjustments().exposure, 0);
    EXPECT_FALSE(book.load(editor->url()));  // the default is no edit
    editor->redo();
    EXPECT_DOUBLE_EQ(editor->adjustments().exposure, 0.5);
    editor->jumpHistory(0);
    EXPECT_EQ(editor->adjustments().exposure, 0);
    EXPECT_EQ(editor->history().labels.size(), 2u);
    EXPECT_TRUE(editor->canRedo());
}

TEST_F(EditorSession, UndoKeepsTwoHundredStates) {
    openAndSettle(samples + "/three_men_night_flash.jpg");
    for (int i = 1; i <= 201; ++i) {
        editor->setAdjustments(with(i * 0.01));
        editor->flushCommit();
    }
    const auto history = editor->history();
    EXPECT_EQ(history.current, 200u);
    EXPECT_EQ(history.labels.size(), 201u);
    for (int i = 0; i < 200; ++i)
        editor->undo();
    EXPECT_DOUBLE_EQ(editor->adjustments().exposure, 0.01);  // the opening state was dropped
    EXPECT_FALSE(editor->canUndo());
}

TEST_F(EditorSession, SwitchingPhotosSavesAndDropsTheOldPhotosRender) {
    const std::string first = samples + "/three_men_night_flash.jpg";
    const std::string second = samples + "/sample_16bit.tif";
    openAndSettle(first);
    const std::string firstUrl = editor->url();
    std::vector<QSize> shown;
    QObject::connect(editor.get(), &EditorModel::displayed,
                     [&] { shown.push_back(editor->displayImage().size()); });
    editor->setAdjustments(with(0.7));  // a render of the first photo is now in flight
    editor->open(second);               // within the debounce
    // The first photo is still the one shown while the second loads: this edit is its own,
    // saved to it however soon the second arrives, and it marks the render dirty.
    editor->setAdjustments(with(0.8));
    ASSERT_TRUE(until([&] { return editor->url() != firstUrl && !editor->rendering(); }));
    editor->waitForQueue();
    pump(200);
    ASSERT_TRUE(book.load(firstUrl));
    EXPECT_DOUBLE_EQ(book.load(firstUrl)->exposure, 0.8);
    EXPECT_DOUBLE_EQ(editor->adjustments().exposure, 0);
    const QSize secondSize = editor->displayImage().size();
    EXPECT_EQ(secondSize, QSize(290, 442));
    // After the switch only the second photo reached the screen.
    const auto firstOfSecond = std::find(shown.begin(), shown.end(), secondSize);
    ASSERT_NE(firstOfSecond, shown.end());
    EXPECT_TRUE(std::all_of(firstOfSecond, shown.end(), [&](QSize s) { return s == secondSize; }));
    EXPECT_EQ(editor->mostRendersInFlight(), 1);
}

TEST_F(EditorSession, AnUnreadablePhotoKeepsTheSession) {
    openAndSettle(samples + "/three_men_night_flash.jpg");
    editor->setAdjustments(with(0.3));
    const std::string url = editor->url();
    testing::writeBytes(dir.file("broken.jpg"), {0xFF, 0xD8, 0xFF, 0xE0});
    editor->open(dir.file("broken.jpg"));
    ASSERT_TRUE(until([&] { return !editor->isLoading(); }));
    EXPECT_EQ(editor->url(), url);
    EXPECT_DOUBLE_EQ(editor->adjustments().exposure, 0.3);
    ASSERT_TRUE(editor->message());
    EXPECT_EQ(*editor->message(),
              "Không mở được ảnh “broken.jpg”. Có thể định dạng này chưa được hỗ trợ.");
}

TEST_F(EditorSession, ZoomAndCompare) {
    openAndSettle(samples + "/three_men_night_flash.jpg");
    const double fit = editor->fitLevel();
    editor->setZoom(fit * 1.03);
    EXPECT_FALSE(editor->zoomed());
    editor->setZoom(1.0, QPointF(0.2, 0.3));
    ASSERT_TRUE(editor->zoomed());
    ASSERT_TRUE(until([&] { return !editor->zoomImage().isNull(); }));
    EXPECT_EQ(editor->zoomText(), "100%");

    editor->compare(false);  // split compare leaves zoom and refuses it
    EXPECT_TRUE(editor->compareMode());
    EXPECT_FALSE(editor->zoomed());
    editor->setZoom(1.0);
    EXPECT_FALSE(editor->zoomed());
    editor->compare(false);  // the same layout twice: compare off
    EXPECT_FALSE(editor->compareMode());

    editor->compare(true);  // side by side zooms, and both sides pan together
    editor->setZoom(2.0, QPointF(0.5, 0.5));
    ASSERT_TRUE(editor->zoomed());
    ASSERT_TRUE(until([&] {
        return !editor->zoomImage().isNull() && !editor->zoomBeforeImage().isNull() &&
               editor->fullOutputSize();
    }));
    editor->panZoom(QPointF(400, 0));
    ASSERT_TRUE(until([&] { return editor->zoomImageCenter().x() > 0.55; }));
    EXPECT_EQ(editor->zoomImage().size(), editor->zoomBeforeImage().size());

    editor->zoomStep(true);
    EXPECT_DOUBLE_EQ(editor->zoomLevel(), 3);
    editor->setZoom(std::nullopt);
    EXPECT_FALSE(editor->zoomed());
    EXPECT_EQ(editor->zoomText(), "Vừa khung");
}

TEST_F(EditorSession, SnapshotsAreTheBeforeSide) {
    openAndSettle(samples + "/three_men_night_flash.jpg");
    Adjustments framed = with(0.4);
    framed.rotation = 2;
    editor->setAdjustments(framed);
    EXPECT_EQ(editor->beforeAdjustments().rotation, 2);  // same framing before and after
    EXPECT_EQ(editor->beforeAdjustments().exposure, 0);
    editor->addSnapshot("   ");
    const auto snaps = book.snapshots(editor->url());
    ASSERT_EQ(snaps.size(), 1u);
    EXPECT_EQ(snaps[0].name, "Bản 1");
    EXPECT_DOUBLE_EQ(snaps[0].adjustments.exposure, 0.4);
    editor->compareWithSnapshot(snaps[0]);
    EXPECT_TRUE(editor->compareMode());
    EXPECT_TRUE(editor->compareSideBySide());
    EXPECT_EQ(editor->compareBeforeTitle(), "BẢN: Bản 1");
    EXPECT_DOUBLE_EQ(editor->beforeAdjustments().exposure, 0.4);
    editor->deleteSnapshot(snaps[0].id);
    EXPECT_TRUE(book.snapshots(editor->url()).empty());
    EXPECT_EQ(editor->compareBeforeTitle(), "TRƯỚC");
}

TEST_F(EditorSession, Tools) {
    openAndSettle(samples + "/three_men_night_flash.jpg");
    editor->straighten({0, 0}, {10, 1}, {800, 600});  // too short: nothing
    EXPECT_EQ(editor->adjustments().rotation, 0);
    editor->straighten({0, 0}, {100, 10}, {800, 600});
    EXPECT_DOUBLE_EQ(editor->adjustments().rotation, -5.7);
    editor->straighten({0, 0}, {5, -100}, {800, 600});  // a near-vertical line works too
    EXPECT_DOUBLE_EQ(editor->adjustments().rotation, -8.6);

    Adjustments cropped = editor->adjustments();
    cropped.crop = CropRect{0.1, 0.2, 0.3, 0.4};  // x, y, w, h
    cropped.cropAspect = CropAspect::r4x5;
    editor->setAdjustments(cropped);
    editor->flipHorizontal();
    EXPECT_DOUBLE_EQ(editor->adjustments().crop->x, 0.6);
    editor->rotateQuarter(true);
    EXPECT_EQ(editor->adjustments().quarterTurns, 1);
    EXPECT_FALSE(editor->adjustments().crop);
    EXPECT_EQ(editor->adjustments().cropAspect, CropAspect::r5x4);
    editor->rotateQuarter(false);
    EXPECT_EQ(editor->adjustments().quarterTurns, 0);

    for (int i = 0; i < 40; ++i)
        editor->stepBrush(true);
    EXPECT_DOUBLE_EQ(editor->brushSize, 0.25);

    editor->addLayer(MaskLayer::Kind::brush);
    ASSERT_EQ(editor->adjustments().layers.size(), 1u);
    const Uuid layer = editor->adjustments().layers[0].id;
    EXPECT_EQ(editor->selectedLayer, layer);
    BrushStroke stroke;
    stroke.points = {{0.2, 0.2}, {0.3, 0.3}};
    editor->addLayerStroke(stroke, layer);
    editor->addLayerStroke(stroke, layer);
    editor->undoStroke(layer);
    EXPECT_EQ(editor->adjustments().layers[0].strokes.size(), 1u);
    editor->redoStroke(layer);
    EXPECT_EQ(editor->adjustments().layers[0].strokes.size(), 2u);
    editor->undo();  // each stroke was its own undo step
    EXPECT_EQ(editor->adjustments().layers[0].strokes.size(), 1u);

    editor->cropMode = true;
    editor->whitePickerActive = true;
    editor->escape();
    EXPECT_FALSE(editor->cropMode);
    EXPECT_TRUE(editor->whitePickerActive);
    editor->escape();
    EXPECT_FALSE(editor->whitePickerActive);
    EXPECT_EQ(editor->selectedLayer, layer);
    editor->escape();
    EXPECT_FALSE(editor->selectedLayer);
}

TEST_F(EditorSession, WhiteBalanceFromThePictureAndFromAPickedPatch) {
    // A warm picture with a bluish grey card in its top-left corner.
    QImage image(300, 200, QImage::Format_RGB32);
    image.fill(QColor(200, 150, 100));
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 40; ++x)
            image.setPixelColor(x, y, QColor(110, 120, 150));
    ASSERT_TRUE(image.save(QString::fromStdString(dir.file("warm.png"))));
    openAndSettle(dir.file("warm.png"));
    editor->autoWhiteBalance();
    ASSERT_TRUE(until([&] { return editor->adjustments().temperature != 0; }));
    EXPECT_LT(editor->adjustments().temperature, 0);  // the warm whole is cooled

    editor->whitePickerActive = true;
    editor->pickWhite({0.06, 0.1});
    ASSERT_TRUE(until([&] { return !editor->whitePickerActive; }));
    EXPECT_GT(editor->adjustments().temperature, 0);  // the bluish card is warmed to grey
}

TEST_F(EditorSession, TheAnalysisLeavesARawsProxyInItsCache) {
    openAndSettle(samples + "/colorchart_canon550d.dng");
    ASSERT_TRUE(until([&] { return editor->report().has_value(); }));
    const int decodes = editor->source()->decodeCount();
    editor->analyze();  // again, now that the proxy of the current edit is cached
    ASSERT_TRUE(until([&] { return !editor->isAnalyzing(); }));
    EXPECT_EQ(editor->styleThumbs().size(), 9u);
    const int before = displays;
    editor->setAdjustments(with(0.2));
    ASSERT_TRUE(until([&] { return displays > before && !editor->rendering(); }));
    EXPECT_EQ(editor->source()->decodeCount(), decodes);  // the white balance didn't change
}

TEST_F(EditorSession, AutoAndExportName) {
    openAndSettle(samples + "/three_men_night_flash.jpg");
    editor->autoAdjust();
    ASSERT_TRUE(until([&] { return !editor->isAutoRunning(); }));
    EXPECT_EQ(editor->adjustments().style, PhotoStyle::natural);
    ASSERT_TRUE(editor->message());
    EXPECT_EQ(*editor->message(), "Đã chỉnh tự động. Bấm Ctrl+Z nếu muốn quay lại.");
    ASSERT_TRUE(until([&] { return editor->report().has_value(); }));
    EXPECT_GE(editor->report()->score, 20);
    // Every look has its thumbnail, and mono's has no colour.
    ASSERT_EQ(editor->styleThumbs().size(), 9u);
    const QImage mono = editor->styleThumbs().at(PhotoStyle::mono);
    EXPECT_EQ(std::max(mono.width(), mono.height()), EditorModel::kStyleThumbLongEdge);
    const QColor c = mono.pixelColor(mono.width() / 2, mono.height() / 2);
    EXPECT_LE(std::abs(c.red() - c.blue()), 2);
    EXPECT_EQ(editor->exportName(), "three_men_night_flash-chinh.jpg");
    std::optional<bool> written;
    editor->exportTo(dir.file("no/such/folder/x.jpg"), [&](bool ok) { written = ok; });
    EXPECT_TRUE(editor->isExporting());
    ASSERT_TRUE(until([&] { return written.has_value(); }));
    EXPECT_FALSE(*written);
    EXPECT_FALSE(editor->isExporting());
    EXPECT_EQ(*editor->message(), "Không lưu được ảnh. Hãy kiểm tra lại thư mục lưu.");
    written.reset();
    editor->exportTo(dir.file("x.jpg"), [&](bool ok) { written = ok; });
    ASSERT_TRUE(until([&] { return written.has_value(); }));
    EXPECT_TRUE(*written);
    EXPECT_TRUE(std::filesystem::exists(dir.file("x.jpg")));
}

}  // namespace
}  // namespace ql
