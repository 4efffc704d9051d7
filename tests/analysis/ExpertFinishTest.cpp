// The expert editor's composed edit on real files: looks, portrait finish, detail by effective
// ISO, straightening, re-runs, and the self-check.
#include <gtest/gtest.h>

#include <cmath>

#include "analysis/Expert.h"
#include "analysis/PhotoAnalyzer.h"
#include "imaging/SrgbTransfer.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

using testing::TempDir;

/// A calm scene with a grey ramp, a skin patch and a blue patch, in linear light.
img::Image scene(float level) {
    img::Image image(240, 160);
    for (int y = 0; y < 160; ++y)
        for (int x = 0; x < 240; ++x) {
            float r = level * (0.2f + 0.6f * x / 239), g = r, b = r;
            if (x > 30 && x < 90 && y > 40 && y < 110)
                r = 0.6f * level, g = 0.35f * level, b = 0.25f * level;
            if (x > 150 && x < 210 && y > 40 && y < 110)
                r = 0.05f * level, g = 0.15f * level, b = 0.6f * level;
            float* p = image.row(y) + x * 4;
            p[0] = r, p[1] = g, p[2] = b, p[3] = 1;
        }
    return image;
}

/// Four moderately coloured quadrants.
img::Image colourful() {
    img::Image image(240, 160);
    const float colours[4][3] = {
        {0.5f, 0.25f, 0.2f}, {0.2f, 0.4f, 0.25f}, {0.2f, 0.25f, 0.5f}, {0.45f, 0.4f, 0.15f}};
    for (int y = 0; y < 160; ++y)
        for (int x = 0; x < 240; ++x) {
            const float* c = colours[(y / 80) * 2 + x / 120];
            float* p = image.row(y) + x * 4;
            p[0] = c[0], p[1] = c[1], p[2] = c[2], p[3] = 1;
        }
    return image;
}

std::string writeJpeg(const TempDir& dir, const img::Image& image, const char* name = "scene.jpg") {
    std::vector<uint8_t> rgb;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            for (int c = 0; c < 3; ++c)
                rgb.push_back(uint8_t(std::lround(
                    255 * img::srgbEncode(std::clamp(image.row(y)[x * 4 + c], 0.f, 1.f)))));
    const std::string path = dir.file(name);
    testing::writeBytes(path, testing::encodeJpeg(image.width(), image.height(), rgb, 95));
    return path;
}

class ExpertFinish : public ::testing::Test {
  protected:
    void SetUp() override { language::set(AppLanguage::vi); }

    ExpertPlan planOf(ImageSource& source, const std::optional<Adjustments>& saved = {},
                      const ExpertOptions& options = {}) {
        const auto analysis = PhotoAnalyzer(pipeline).analysis(source, false);
        EXPECT_TRUE(analysis);
        auto planned = Expert::plan(source, *analysis, saved, options);
        EXPECT_TRUE(std::holds_alternative<ExpertPlan>(planned));
        return std::get<ExpertPlan>(planned);
    }

    TempDir dir;
    Pipeline pipeline;
};

TEST_F(ExpertFinish, PortraitGetsItsFinishAndTheNoteTellsWhatWasDone) {
    ImageSource source(writeJpeg(dir, scene(0.5f)), 1200);
    ExpertPlan plan = planOf(source);
    plan.scene = SceneKind::portrait;
    plan.style = PhotoStyle::bright, plan.strength = 0.4;
    plan.analysis.stats.faces = {{{0.3, 0.2, 0.25, 0.35}, 0.5, 20, 0.3}};
    const Adjustments a = Expert::finish(plan, source, pipeline, {});
    const size_t orange = size_t(ColorBand::orange);
    EXPECT_EQ(a.skinEven, 50);
    EXPECT_EQ(a.retouch, (FaceRetouch{30, 15, 25, 0}));
    EXPECT_EQ(a.people.clarity, -10);
    EXPECT_EQ(a.vignette, -8);
    EXPECT_EQ(a.mixLuminance[orange], 6 + 3);  // the finish, and bright's +8 at 0.4
    EXPECT_EQ(a.mixSaturation[orange], -4 - 2);
    EXPECT_EQ(a.sharpening, 10);  // not RAW, no ISO: no noise reduction
    EXPECT_EQ(a.noiseReduction, 0);
    EXPECT_EQ(a.style, PhotoStyle::bright);
    EXPECT_EQ(a.styleStrength, 40);
    ASSERT_TRUE(a.expertNote);
    const std::string& note = *a.expertNote;
    EXPECT_EQ(note.rfind("Cảnh trong nhà", 0), 0u) << note;  // the plan's own scene note
    for (const char* part : {"; phong cách sáng trong 40%", "; làm mịn da nhẹ", "; đều màu da",
                             "; xóa vết nhỏ, giảm quầng thâm, sáng mắt nhẹ", "; làm nét 10"})
        EXPECT_NE(note.find(part), std::string::npos) << part << " in " << note;
    EXPECT_EQ(note.back(), '.');

    // Mono skips the portrait finish and keeps its colour off.
    plan.style = PhotoStyle::mono, plan.strength = 1;
    plan.correction.vibrance = 30;
    const Adjustments mono = Expert::finish(plan, source, pipeline, {});
    EXPECT_EQ(mono.vibrance, 0);
    EXPECT_EQ(mono.vignette, 0);
    EXPECT_EQ(mono.expertNote->find("làm mịn da"), std::string::npos);
}

TEST_F(ExpertFinish, DetailFollowsTheEffectiveIsoOfARaw) {
    const std::string path = dir.file("dark.dng");
    testing::writeDngOfScene(path, scene(0.25f), 3200);
    ImageSource source(path, 1200);
    ExpertPlan plan = planOf(source);
    plan.correction = {};
    Adjustments a = Expert::finish(plan, source, pipeline, {});
    EXPECT_EQ(a.sharpening, 25);
    EXPECT_EQ(a.noiseReduction, 30);
    EXPECT_NE(a.expertNote->find("làm nét 25, giảm nhiễu 30 (ISO 3200)"), std::string::npos)
        << *a.expertNote;

    plan.correction.exposure = 0.5;
    plan.correction.peopleExposure = 1;  // a lift of the people counts for half
    a = Expert::finish(plan, source, pipeline, {});
    EXPECT_EQ(a.noiseReduction, 45);  // 3200 × 2^(0.5 + 0.5) = 6400
    EXPECT_NE(a.expertNote->find("tính như ISO 6400 vì ảnh được kéo sáng"), std::string::npos)
        << *a.expertNote;

    plan.start.noiseReduction = 12;  // the photographer's own setting stays, sharpening too
    a = Expert::finish(plan, source, pipeline, {});
    EXPECT_EQ(a.noiseReduction, 12);
    EXPECT_EQ(a.sharpening, 0);
    EXPECT_EQ(a.expertNote->find("làm nét"), std::string::npos);
}

TEST_F(ExpertFinish, StraightensOnlyConfidentModestLeans) {
    ImageSource source(writeJpeg(dir, scene(0.5f)), 1200);
    ExpertPlan plan = planOf(source);
    ExpertOptions straighten;
    straighten.straighten = true;
    struct Case {
        double lean, confidence, startRotation, expected;
    };
    for (const Case& c : {Case{2.0, 3.5, 0, 2.0}, Case{-4.0, 3.0, 0, -4.0}, Case{0.5, 5, 0, 0},
                          Case{4.5, 5, 0, 0}, Case{2.0, 2.9, 0, 0}, Case{2.0, 5, 1.5, 1.5}}) {
        plan.analysis.stats.lean = c.lean;
        plan.analysis.stats.leanConfidence = c.confidence;
        plan.start.rotation = c.startRotation;
        const Adjustments a = Expert::finish(plan, source, pipeline, straighten);
        EXPECT_EQ(a.rotation, c.expected) << c.lean << " " << c.confidence;
    }
    plan.analysis.stats.lean = 2.0, plan.start.rotation = 0;
    EXPECT_EQ(Expert::finish(plan, source, pipeline, {}).rotation, 0);  // not asked
    const Adjustments a = Expert::finish(plan, source, pipeline, straighten);
    EXPECT_NE(a.expertNote->find("nắn thẳng 2,0°"), std::string::npos) << *a.expertNote;
}

TEST_F(ExpertFinish, RerunsStartFromGeometryAndHandEditsMayBeKept) {
    ImageSource source(writeJpeg(dir, scene(0.3f)), 1200);
    Adjustments hand;
    hand.contrast = 40;
    hand.rotation = 1.5;
    ExpertOptions keep;
    keep.skipHandEdited = true;
    const auto analysis = PhotoAnalyzer(pipeline).analysis(source, false);
    ASSERT_TRUE(analysis);
    const auto skipped = Expert::plan(source, *analysis, hand, keep);
    ASSERT_TRUE(std::holds_alternative<Expert::NoPlan>(skipped));
    EXPECT_EQ(std::get<Expert::NoPlan>(skipped), Expert::NoPlan::handEdited);

    const Adjustments first = Expert::finish(planOf(source, hand), source, pipeline, {});
    EXPECT_EQ(first.rotation, 1.5);
    const ExpertPlan again = planOf(source, first, keep);  // its own work may be redone
    EXPECT_EQ(again.start.rotation, 1.5);
    EXPECT_EQ(again.start.contrast, 0);
    // The same photo edited again from its own result gives the same edit.
    EXPECT_EQ(Expert::finish(again, source, pipeline, {}), first);
}

TEST_F(ExpertFinish, SelfCheckPullsBackClippingAndColour) {
    ImageSource source(writeJpeg(dir, scene(0.6f)), 1200);
    ExpertPlan plan = planOf(source);
    plan.correction = {};
    plan.correction.exposure = 2;
    const Adjustments bright = Expert::finish(plan, source, pipeline, {});
    EXPECT_DOUBLE_EQ(bright.exposure, 1.55);  // three rounds of -0.15
    EXPECT_EQ(bright.highlights, -30);
    EXPECT_NE(bright.expertNote->find("; tự kiểm tra: bớt sáng để không cháy."), std::string::npos)
        << *bright.expertNote;

    ImageSource colours(writeJpeg(dir, colourful(), "colours.jpg"), 1200);
    ExpertPlan colourPlan = planOf(colours);
    colourPlan.correction = {};
    colourPlan.correction.saturation = 90;
    const Adjustments vivid = Expert::finish(colourPlan, colours, pipeline, {});
    EXPECT_LT(vivid.saturation, 90);
    EXPECT_EQ(std::fmod(90 - vivid.saturation, 5), 0);  // whole rounds of -5
    EXPECT_NE(vivid.expertNote->find("; tự kiểm tra: bớt màu cho tự nhiên."), std::string::npos)
        << *vivid.expertNote;

    plan.correction = {};  // nothing to pull back: no self-check note
    const Adjustments calm = Expert::finish(plan, source, pipeline, {});
    EXPECT_EQ(calm.expertNote->find("tự kiểm tra"), std::string::npos) << *calm.expertNote;
}

}  // namespace
}  // namespace ql
