// The analysis of real photos and of degenerate ones: every measure finite, the cache, and an
// Auto edit that does not add clipping.
#include <gtest/gtest.h>

#include <cmath>

#include <QImage>

#include "analysis/AutoResult.h"
#include "analysis/Expert.h"
#include "analysis/ImageAnalyzer.h"
#include "analysis/PhotoAnalyzer.h"
#include "render/Develop.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"
#include "tests/support/Mosaic.h"

namespace ql {
namespace {

const std::string samples = QL_SAMPLES_DIR;

void expectFinite(const PhotoAnalysis& a, const std::string& what) {
    const ImageStats& s = a.stats;
    for (double v : {s.p1,
                     s.p5,
                     s.p50,
                     s.p95,
                     s.p99,
                     s.p05,
                     s.p10,
                     s.p90,
                     s.p98,
                     s.p995,
                     s.sharpness,
                     s.leanConfidence,
                     s.peopleCoverage,
                     s.mean,
                     s.clippedHighlights,
                     s.clippedShadows,
                     s.meanSaturation,
                     s.skin,
                     s.sky,
                     s.foliage,
                     s.castR,
                     s.castB,
                     a.neutralTemperature,
                     a.neutralTint})
        EXPECT_TRUE(std::isfinite(v)) << what;
    const AutoTone& t = a.autoTone;
    for (double v : {t.exposure, t.contrast, t.highlights, t.shadows, t.blacks, t.vibrance,
                     t.dehaze, t.peopleExposure})
        EXPECT_TRUE(std::isfinite(v)) << what;
    for (const FaceInfo& f : s.faces)
        EXPECT_TRUE(std::isfinite(f.luma + f.hue)) << what;
}

double clippingOf(ImageSource& source, const Adjustments& edit, const Pipeline& pipeline) {
    const img::Image out = develop(source, pipeline, edit, source.previewBase(edit));
    return ImageAnalyzer::stats(*PixelBuffer::make(out, 640)).clippedHighlights;
}

TEST(PhotoAnalyzer, RealPhotosAreMeasuredAndAutoAddsNoClipping) {
    const Pipeline pipeline;
    for (const char* name : {"event_hall_group.jpg", "three_men_night_flash.jpg",
                             "colorchart_canon550d.dng", "sample_16bit.tif"}) {
        SCOPED_TRACE(name);
        ImageSource source(samples + "/" + name, 1200);
        PhotoAnalyzer analyzer(pipeline);
        const auto a = analyzer.analysis(source, false);
        ASSERT_TRUE(a);
        expectFinite(*a, name);
        EXPECT_FALSE(a->jpeg);
        EXPECT_GT(a->stats.p99, a->stats.p1);
        EXPECT_FALSE(a->stats.colors.empty());
        if (source.isRAW()) {
            EXPECT_GT(a->neutralTemperature, 2000);
            EXPECT_LT(a->neutralTemperature, 12000);
        }
        const Adjustments edit = autoResult({}, *a, PhotoFacts::of(source));
        const double before = clippingOf(source, Adjustments::defaults(), pipeline);
        const double after = clippingOf(source, edit, pipeline);
        EXPECT_LE(after, std::max(1.3 * before, before + 0.01)) << edit.encode();
    }
}

TEST(PhotoAnalyzer, FacesOfAGroupAndTheCache) {
    const Pipeline pipeline;
    ImageSource source(samples + "/event_hall_group.jpg", 1200);
    PhotoAnalyzer analyzer(pipeline);
    const auto a = analyzer.analysis(source, false);
    ASSERT_TRUE(a);
    EXPECT_GE(a->stats.faces.size(), 3u);
    EXPECT_GT(a->stats.peopleCoverage, 0.05);
    const int decodes = source.decodeCount();
    const int searches = source.peopleAnalyses();
    EXPECT_TRUE(analyzer.analysis(source, false));  // from the cache
    EXPECT_EQ(source.decodeCount(), decodes);
    EXPECT_EQ(source.peopleAnalyses(), searches);
    // A JPEG asked later is made then; it is a real JPEG of at most 1024 pixels.
    const auto withJpeg = analyzer.analysis(source, true);
    ASSERT_TRUE(withJpeg && withJpeg->jpeg);
    QImage decoded;
    ASSERT_TRUE(decoded.loadFromData(withJpeg->jpeg->data(), int(withJpeg->jpeg->size()), "JPG"));
    EXPECT_EQ(std::max(decoded.width(), decoded.height()), 1024);
}

TEST(PhotoAnalyzer, ARawWithTheCamerasLookMeasuresItsCastAfterTheLook) {
    testing::TempDir dir;
    const img::Image scene = testing::sampleMosaic(480, 320, {"three_men_night_flash.jpg"});
    testing::DngSpec spec = testing::apscCameraSpec(480, 320);
    const auto camera = [&](int x, int y) {
        const img::Pixel p = scene.at(x, y);
        return std::array<float, 3>{p.r * 0.5f, p.g * 0.9f, p.b * 0.7f};
    };
    testing::writeDng(dir.file("plain.dng"), spec, camera);
    // The camera's own JPEG renders the scene much warmer than neutral.
    spec.previewWidth = 480, spec.previewHeight = 320;
    for (int y = 0; y < 320; ++y)
        for (int x = 0; x < 480; ++x) {
            const img::Pixel p = scene.at(x, y);
            for (float c : {p.r * 1.4f, p.g, p.b * 0.6f})
                spec.previewRGB.push_back(
                    uint8_t(std::lround(255 * std::pow(std::clamp(c, 0.0f, 1.0f), 1 / 2.2f))));
        }
    testing::writeDng(dir.file("looked.dng"), spec, camera);

    const Pipeline pipeline;
    ImageSource plain(dir.file("plain.dng"), 1200);
    const auto measured = PhotoAnalyzer(pipeline).analysis(plain, false);
    ASSERT_TRUE(measured);
    EXPECT_FALSE(measured->lookWarmth);  // measured by the decoder's own neutral instead
    EXPECT_GT(measured->neutralTemperature, 2000);

    ImageSource looked(dir.file("looked.dng"), 1200);
    ASSERT_TRUE(looked.cameraLookFit());
    const auto a = PhotoAnalyzer(pipeline).analysis(looked, false);
    ASSERT_TRUE(a);
    EXPECT_DOUBLE_EQ(a->neutralTemperature, looked.asShotTemperature());
    EXPECT_DOUBLE_EQ(a->neutralTint, looked.asShotTint());
    ASSERT_TRUE(a->lookWarmth && a->lookTint);
    EXPECT_LT(*a->lookWarmth, -40);  // warmer than neutral, in mired: the look's cast
}

TEST(PhotoAnalyzer, DegeneratePicturesGiveFiniteMeasures) {
    testing::TempDir dir;
    const Pipeline pipeline;
    struct Case {
        const char* name;
        int width, height;
        QColor colour;
    };
    for (const Case& c :
         {Case{"black.png", 64, 48, Qt::black}, Case{"white.png", 64, 48, Qt::white},
          Case{"red.png", 64, 48, QColor(200, 20, 20)}, Case{"one.png", 1, 1, QColor(90, 120, 60)},
          Case{"line.png", 300, 1, QColor(128, 128, 128)}}) {
        SCOPED_TRACE(c.name);
        QImage image(c.width, c.height, QImage::Format_RGB32);
        image.fill(c.colour);
        ASSERT_TRUE(image.save(QString::fromStdString(dir.file(c.name))));
        ImageSource source(dir.file(c.name), 1200);
        PhotoAnalyzer analyzer(pipeline);
        const auto a = analyzer.analysis(source, true);
        ASSERT_TRUE(a);
        expectFinite(*a, c.name);
        EXPECT_TRUE(a->stats.faces.empty());
        const Adjustments edit = autoResult({}, *a, PhotoFacts::of(source));
        EXPECT_TRUE(std::isfinite(edit.exposure));
        // The expert editor finishes them too, with a note and finite numbers.
        auto plan = Expert::plan(source, *a, std::nullopt, {});
        ASSERT_TRUE(std::holds_alternative<ExpertPlan>(plan));
        const Adjustments expert = Expert::finish(std::get<ExpertPlan>(plan), source, pipeline, {});
        ASSERT_TRUE(expert.expertNote);
        EXPECT_EQ(expert.withinRanges(), expert) << expert.encode();
    }
}

}  // namespace
}  // namespace ql
