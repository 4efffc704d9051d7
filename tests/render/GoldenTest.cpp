// Golden pictures: a few real photos with typical edits, rendered small and kept in the
// repository, so that an unintended change of look fails. After an intended change, run the test
// with QL_UPDATE_GOLDEN=1 and review the new pictures before committing them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "imaging/codec/FileBytes.h"
#include "imaging/codec/PngCodec.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"
#include "tests/support/ColourDifference.h"

namespace ql {
namespace {

struct Golden {
    const char* name;
    const char* photo;
    std::function<void(Adjustments&)> edit;
};

std::vector<Golden> goldens() {
    return {
        {"hall_tone", "event_hall_group.jpg",
         [](Adjustments& a) {
             a.exposure = 0.3, a.contrast = 25, a.highlights = -40, a.shadows = 35;
             a.whites = 15, a.blacks = -10, a.vibrance = 25;
             a.curves.master = {{0, 0.03}, {0.3, 0.27}, {0.7, 0.76}, {1, 1}};
         }},
        {"crowd_colour", "party_crowd_indoor.jpg",
         [](Adjustments& a) {
             a.temperature = 20, a.tint = -5, a.saturation = -10;
             a.mixHue[1] = -15, a.mixSaturation[1] = 20, a.mixLuminance[1] = 15;
             a.mixSaturation[5] = -30;
             a.gradeShadows = {220, 30, -5};
             a.gradeHighlights = {40, 25, 5};
             a.curves.red = {{0, 0}, {0.5, 0.53}, {1, 1}};
         }},
        {"night_detail", "three_men_night_flash.jpg",
         [](Adjustments& a) {
             a.clarity = 35, a.texture = 25, a.dehaze = 20, a.noiseReduction = 50;
             a.sharpening = 50, a.vignette = -30, a.grain = 20;
         }},
        {"chart_raw", "colorchart_canon550d.dng",
         [](Adjustments& a) {
             a.rawTemperature = 4800, a.exposure = 0.5, a.contrast = 15, a.saturation = 10;
             a.noiseReduction = 30;
         }},
    };
}

constexpr int kLongEdge = 320;

std::string goldenPath(const Golden& g) {
    return std::string(QL_GOLDEN_DIR) + "/" + g.name + ".png";
}

img::Image renderGolden(const Golden& g) {
    Adjustments edit;
    g.edit(edit);
    ImageSource source(std::string(QL_SAMPLES_DIR) + "/" + g.photo, kLongEdge);
    const Pipeline pipeline;
    return pipeline.apply(edit, source.previewBase(edit), source.isRAW(), {}, true, {}, nullptr,
                          {});
}

TEST(Golden, RenderedLookIsUnchanged) {
    const bool update = std::getenv("QL_UPDATE_GOLDEN") != nullptr;
    for (const Golden& g : goldens()) {
        const img::Image rendered = renderGolden(g);
        ASSERT_FALSE(rendered.empty()) << g.name;
        if (update) {
            img::writePng8(rendered, goldenPath(g));
            continue;
        }
        ASSERT_TRUE(std::filesystem::exists(goldenPath(g))) << g.name;
        const img::Image kept = img::decodePng(img::readFileBytes(goldenPath(g)));
        ASSERT_EQ(kept.width(), rendered.width()) << g.name;
        ASSERT_EQ(kept.height(), rendered.height()) << g.name;
        const auto d = testing::compare(kept, rendered);
        EXPECT_LE(d.mean, 0.5) << g.name;
        EXPECT_LE(d.max, 2.3) << g.name;
    }
    if (update) GTEST_SKIP() << "golden pictures written; review them before committing";
}

}  // namespace
}  // namespace ql
