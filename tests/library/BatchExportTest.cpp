// The export loops on a worker thread reporting to a job on a real event loop: numbering,
// subfolders, collision names, failures that do not stop the batch, and cancelling.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QtConcurrent/QtConcurrentRun>

#include <filesystem>
#include <set>

#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/Metadata.h"
#include "imaging/codec/PngCodec.h"
#include "library/BatchExport.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

QCoreApplication& application() {
    static int argc = 1;
    static char name[] = "ql_library_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

// Runs `work` on a pool thread while this thread's event loop delivers the job's reports.
void runJob(BatchJob& job, const std::function<void()>& work) {
    application();
    QEventLoop loop;
    QObject::connect(&job, &BatchJob::finishedChanged, &loop, &QEventLoop::quit);
    QFuture<void> done = QtConcurrent::run(work);
    loop.exec();
    done.waitForFinished();
}

std::set<std::string> tree(const fs::path& root) {
    std::set<std::string> names;
    for (const auto& e : fs::recursive_directory_iterator(root))
        if (e.is_regular_file()) names.insert(fs::relative(e.path(), root).string());
    return names;
}

class BatchExportTest : public ::testing::Test {
  protected:
    void SetUp() override {
        fs::create_directories(dir_.path() / "src");
        fs::create_directories(dir_.path() / "out");
        a_ = photo("src/a.png", 0.2f);
        b_ = photo("src/b.png", 0.6f);
        bad_ = dir_.file("src/bad.jpg");
        testing::writeBytes(bad_, {0xFF, 0xD8, 0xFF, 0xE0, 0, 0, 1, 2, 3});
        out_ = dir_.file("out");
    }
    std::string photo(const std::string& name, float grey) {
        const std::string path = dir_.file(name);
        img::writePng8(img::Image::filled(120, 80, {grey, grey, grey, 1}), path);
        return path;
    }
    static ExportRecipe recipe(const std::string& subfolder, const std::string& naming,
                               ExportFormat format = ExportFormat::jpeg) {
        ExportRecipe r = ExportRecipe::added();
        r.subfolder = subfolder;
        r.naming = naming;
        r.options.format = format;
        return r;
    }
    QStringList runRecipes(const std::vector<std::string>& urls,
                           const std::vector<ExportRecipe>& recipes, const EditSource& edits = {}) {
        BatchJob job(exportJobTitle(int(urls.size())), int(urls.size()));
        runJob(job, [&] { exportWithRecipes(urls, recipes, out_, "Le Ca", edits, job); });
        EXPECT_TRUE(job.finished());
        EXPECT_EQ(job.done(), int(urls.size()));
        return job.failed();
    }

    TempDir dir_;
    std::string a_, b_, bad_, out_;
};

TEST_F(BatchExportTest, RecipesNumberByPositionAndNeverOverwrite) {
    ExportRecipe archive = recipe("Luu tru", "{ten}");
    ExportRecipe web = recipe("  ", "{du-an}_{so}", ExportFormat::png);
    web.options.limitSize = true;
    web.options.longEdge = 60;
    ExportRecipe off = recipe("Zalo", "{ten}");
    off.enabled = false;
    const std::vector<std::string> urls = {a_, bad_, b_};

    EXPECT_EQ(runRecipes(urls, {archive, web, off}), QStringList{"bad.jpg"});
    EXPECT_EQ(tree(out_), (std::set<std::string>{"Luu tru/a.jpg", "Luu tru/b.jpg", "Le Ca_001.png",
                                                 "Le Ca_003.png"}));
    const img::Image small = img::decodeImage(testing::readBytes(out_ + "/Le Ca_003.png"));
    EXPECT_EQ(small.width(), 60);

    // A second run into the same folder keeps the first run's files.
    runRecipes(urls, {archive, web, off});
    EXPECT_TRUE(fs::exists(out_ + "/Luu tru/a-2.jpg"));
    EXPECT_TRUE(fs::exists(out_ + "/Le Ca_003-2.png"));
    EXPECT_EQ(tree(out_).size(), 8u);
}

TEST_F(BatchExportTest, AFailedRecipeFailsThePhotoButTheNextRecipeRuns) {
    testing::writeBytes(out_ + "/blocked", {1});  // a file where a subfolder should go
    const QStringList failed =
        runRecipes({a_, b_}, {recipe("blocked", "{ten}"), recipe("Moi", "{ten}")});
    EXPECT_EQ(failed, (QStringList{"a.png", "b.png"}));
    EXPECT_EQ(tree(out_), (std::set<std::string>{"blocked", "Moi/a.jpg", "Moi/b.jpg"}));
}

TEST_F(BatchExportTest, EachPhotoGetsItsOwnEditAndMetadata) {
    EditSource edits;
    edits.adjustments = [&](const std::string& url) {
        Adjustments adj;
        if (url == a_) adj.exposure = 1;
        return adj;
    };
    edits.meta = [&](const std::string& url) {
        PhotoMeta meta;
        meta.title = "Lễ " + fs::path(url).stem().string();
        return std::optional(meta);
    };
    ExportRecipe r = recipe("", "{ten}", ExportFormat::png);
    r.copyright = "GX";
    runRecipes({a_, b_}, {r}, edits);
    const float grey = img::decodeImage(testing::readBytes(out_ + "/a.png")).at(5, 5).r;
    EXPECT_NEAR(grey, 0.4f, 0.02f);  // 0.2 pushed up one stop
    EXPECT_NEAR(img::decodeImage(testing::readBytes(out_ + "/b.png")).at(5, 5).r, 0.6f, 0.01f);
    const auto meta = img::Metadata::read(out_ + "/b.png");
    EXPECT_EQ(meta.text("Iptc.Application2.ObjectName"), "Lễ b");
    EXPECT_EQ(meta.text("Iptc.Application2.Copyright"), "GX");
}

TEST_F(BatchExportTest, CancelIsReadBeforeEachPhoto) {
    BatchJob before(exportJobTitle(2), 2);
    before.cancelFlag().cancel();
    runJob(before, [&] { batchExport({a_, b_}, out_, {}, {}, before); });
    EXPECT_TRUE(before.finished());
    EXPECT_EQ(before.done(), 0);
    EXPECT_TRUE(tree(out_).empty());

    BatchJob during(exportJobTitle(3), 3);
    EditSource edits;
    edits.adjustments = [&](const std::string&) {
        during.cancelFlag().cancel();  // the photo under way still finishes
        return Adjustments{};
    };
    runJob(during, [&] { batchExport({a_, b_, bad_}, out_, {}, edits, during); });
    EXPECT_EQ(during.done(), 1);
    EXPECT_EQ(tree(out_), (std::set<std::string>{"a.jpg"}));
}

TEST_F(BatchExportTest, PlainBatchNamesAfterTheSource) {
    fs::create_directories(dir_.path() / "other");
    const std::string twin = dir_.file("other/a.png");
    fs::copy_file(a_, twin);
    BatchJob job(exportJobTitle(3), 3);
    runJob(job, [&] {
        batchExport({a_, twin, bad_}, out_, {ExportFormat::tiff16, 92, false, 0}, {}, job);
    });
    EXPECT_EQ(job.failed(), QStringList{"bad.jpg"});
    EXPECT_EQ(tree(out_), (std::set<std::string>{"a.tif", "a-2.tif"}));
    EXPECT_EQ(exportJobTitle(3), "Xuất 3 ảnh");
}

}  // namespace
}  // namespace ql
