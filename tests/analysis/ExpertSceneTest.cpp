#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <variant>

#include "analysis/Expert.h"
#include "edit/AppLanguage.h"
#include "imaging/codec/JpegCodec.h"
#include "tests/support/Fixtures.h"
#include "tests/support/MetadataTags.h"

namespace ql {
namespace {

struct Case {
    double p50, sky;
    std::vector<double> faceWidths;
    std::optional<std::string> iso;
    double warmth;
    SceneKind expected;
    double p95 = 0.6;  // with p5 0
};

TEST(ExpertSceneTest, Rules) {
    using K = SceneKind;
    const Case cases[] = {
        // One or two large faces make a portrait whatever the light; tiny ones do not count.
        {0.1, 0, {0.2}, "ISO 6400", 0, K::portrait},
        {0.6, 0.5, {0.05, 0.13}, {}, -80, K::portrait},
        {0.4, 0, {0.2, 0.2, 0.01, 0.015}, {}, 0, K::portrait},
        {0.4, 0, {0.12}, {}, 0, K::interior},
        {0.2, 0, {0.2, 0.2, 0.2}, {}, 0, K::lowLight},
        {0.4, 0, {0.02, 0.02, 0.02}, {}, 0, K::group},
        // Inside: darkness or high ISO first, then brightness.
        {0.6, 0, {}, "ISO 3200", 0, K::lowLight},
        {0.6, 0.08, {}, "3200", 0, K::lowLight},
        {0.6, 0, {}, "ISO 1600", 0, K::whiteInterior},
        {0.6, 0, {}, "Auto", 0, K::whiteInterior},
        {0.55, 0, {}, {}, 0, K::interior},
        {0.3, 0, {}, {}, 0, K::interior},
        {0.29, 0, {}, {}, 0, K::lowLight},
        // Outside: a warm, not bright frame is late sun; otherwise the range decides.
        {0.54, 0.09, {}, {}, -41, K::goldenHour},
        {0.54, 0.09, {}, {}, -40, K::outdoorShade},
        {0.55, 0.09, {}, {}, -41, K::outdoorShade},
        {0.55, 0.09, {}, {}, -41, K::outdoorSunny, 0.66},
        {0.2, 0.3, {}, "ISO 6400", 0, K::outdoorShade, 0.65},
    };
    for (const Case& c : cases) {
        ImageStats stats;
        stats.p50 = c.p50;
        stats.p95 = c.p95;
        stats.sky = c.sky;
        for (const double w : c.faceWidths)
            stats.faces.push_back({.rect = {0.1, 0.1, w, w}});
        PhotoInfo info;
        info.iso = c.iso;
        EXPECT_EQ(Expert::scene(stats, info, c.warmth), c.expected)
            << "p50 " << c.p50 << " sky " << c.sky << " faces " << c.faceWidths.size() << " iso "
            << c.iso.value_or("-") << " warmth " << c.warmth;
    }
}

TEST(ExpertSceneTest, DefaultLooks) {
    const auto look = [](SceneKind k) {
        const Expert::Look l = Expert::defaultLook(k);
        return std::pair{l.style, l.strength};
    };
    EXPECT_EQ(look(SceneKind::whiteInterior), std::pair(PhotoStyle::bright, 0.6));
    EXPECT_EQ(look(SceneKind::portrait), std::pair(PhotoStyle::bright, 0.4));
    EXPECT_EQ(look(SceneKind::lowLight), std::pair(PhotoStyle::natural, 1.0));
    EXPECT_EQ(look(SceneKind::outdoorSunny), std::pair(PhotoStyle::vivid, 0.5));
    EXPECT_EQ(look(SceneKind::goldenHour), std::pair(PhotoStyle::warm, 0.6));
}

class MomentsTest : public ::testing::Test {
  protected:
    // A tiny JPEG named `name`, with the capture time "hh:mm:ss" of one day and a camera model.
    std::string shot(const std::string& name, std::optional<std::string> time,
                     std::optional<std::string> model = "EOS R6") {
        const std::string path = dir_.file(name);
        img::writeJpeg(img::Image::filled(8, 8, {0.5f, 0.5f, 0.5f, 1}), path, {});
        testing::Tags tags;
        if (time) tags.emplace_back("Exif.Photo.DateTimeOriginal", "2024:05:01 " + *time);
        if (model) tags.emplace_back("Exif.Image.Model", *model);
        if (!tags.empty()) testing::setTags(path, tags);
        return path;
    }
    static std::string clock(int seconds) {
        char text[16];
        std::snprintf(text, sizeof text, "10:%02d:%02d", seconds / 60 % 60, seconds % 60);
        return text;
    }
    static std::vector<size_t> sizes(const std::vector<std::vector<std::string>>& groups) {
        std::vector<size_t> out;
        for (const auto& g : groups)
            out.push_back(g.size());
        return out;
    }
    testing::TempDir dir_;
};

TEST_F(MomentsTest, BurstSplitsAtTwentyFour) {
    // Names run against time, so the order can only come from the dates.
    std::vector<std::string> urls;
    for (int i = 0; i < 30; ++i)
        urls.push_back(shot("f" + std::to_string(99 - i) + ".jpg", clock(i)));
    std::vector<std::string> shuffled = urls;
    std::reverse(shuffled.begin(), shuffled.end());
    std::rotate(shuffled.begin(), shuffled.begin() + 7, shuffled.end());

    const auto groups = Expert::moments(shuffled, std::chrono::seconds(120));
    ASSERT_EQ(sizes(groups), (std::vector<size_t>{24, 6}));
    EXPECT_EQ(groups[0].front(), urls[0]);
    EXPECT_EQ(groups[0].back(), urls[23]);
    EXPECT_EQ(groups[1].back(), urls[29]);
}

TEST_F(MomentsTest, CameraGapAndMissingDates) {
    const std::string a = shot("a.jpg", "10:00:00", "EOS R6");
    const std::string b = shot("b.jpg", "10:00:00", "Z 6");
    EXPECT_EQ(sizes(Expert::moments({a, b}, std::chrono::seconds(120))),
              (std::vector<size_t>{1, 1}));

    const std::string c = shot("c.jpg", "10:02:00");
    const std::string d = shot("d.jpg", "10:04:01");
    EXPECT_EQ(Expert::moments({d, c, a}, std::chrono::seconds(120)),
              (std::vector<std::vector<std::string>>{{a, c}, {d}}));

    // Without a date, or unreadable, a file stands alone and comes first, by name.
    const std::string undated = shot("e.jpg", std::nullopt);
    const std::string unreadable = dir_.file("broken.jpg");
    testing::writeBytes(unreadable, {0xFF, 0xD8, 0x00});
    const std::string missing = dir_.file("gone.jpg");
    EXPECT_EQ(Expert::moments({c, undated, missing, unreadable, a}, std::chrono::seconds(120)),
              (std::vector<std::vector<std::string>>{{unreadable}, {undated}, {missing}, {a, c}}));
    EXPECT_TRUE(Expert::moments({}, std::chrono::seconds(120)).empty());
}

ExpertPlan plan(double exposure, PhotoStyle style = PhotoStyle::natural, double strength = 1,
                std::optional<double> lookWarmth = std::nullopt) {
    ExpertPlan p;
    p.correction.exposure = exposure;
    p.style = style;
    p.strength = strength;
    p.analysis.lookWarmth = lookWarmth;
    return p;
}

std::vector<std::pair<PhotoStyle, double>> looks(std::vector<ExpertPlan> plans) {
    Expert::harmonize(plans);
    std::vector<std::pair<PhotoStyle, double>> out;
    for (const ExpertPlan& p : plans)
        out.emplace_back(p.style, p.strength);
    return out;
}

TEST(HarmonizeTest, PullsExposureAndWarmthAndNotes) {
    language::set(AppLanguage::vi);
    // Median 0.33: 0.1 pulls to 0.192 -> 0.2, 0.33 itself lands on the 0.05 grid, 1.2 is
    // meant to differ. Warmth median 30: 80 is too far to pull.
    std::vector<ExpertPlan> plans{plan(0.1, PhotoStyle::natural, 1, 10),
                                  plan(0.33, PhotoStyle::natural, 1, 30),
                                  plan(1.2, PhotoStyle::natural, 1, 80), plan(0.33)};
    plans[0].notes = {"Cảnh trong nhà"};
    Expert::harmonize(plans);
    EXPECT_DOUBLE_EQ(plans[0].correction.exposure, 0.2);
    EXPECT_DOUBLE_EQ(plans[1].correction.exposure, 0.35);
    EXPECT_DOUBLE_EQ(plans[2].correction.exposure, 1.2);
    EXPECT_DOUBLE_EQ(*plans[0].analysis.lookWarmth, 20);
    EXPECT_DOUBLE_EQ(*plans[1].analysis.lookWarmth, 30);
    EXPECT_DOUBLE_EQ(*plans[2].analysis.lookWarmth, 80);
    EXPECT_FALSE(plans[3].analysis.lookWarmth);
    EXPECT_EQ(plans[0].notes,
              (std::vector<std::string>{"Cảnh trong nhà", "đồng bộ với 3 ảnh cùng lúc"}));
    EXPECT_EQ(plans[3].notes, std::vector<std::string>{"đồng bộ với 3 ảnh cùng lúc"});

    // Of an even count the median is the upper middle value.
    std::vector<ExpertPlan> two{plan(0), plan(0.5)};
    Expert::harmonize(two);
    EXPECT_DOUBLE_EQ(two[0].correction.exposure, 0.2);
    EXPECT_DOUBLE_EQ(two[1].correction.exposure, 0.5);

    std::vector<ExpertPlan> single{plan(0.33, PhotoStyle::vivid, 1, 30)};
    Expert::harmonize(single);
    EXPECT_DOUBLE_EQ(single[0].correction.exposure, 0.33);
    EXPECT_TRUE(single[0].notes.empty());
}

TEST(HarmonizeTest, StyleFollowsAMajorityOnly) {
    using S = PhotoStyle;
    // The odd one out takes the median strength of the majority; the others keep theirs.
    EXPECT_EQ(
        looks({plan(0, S::bright, 0.6), plan(0, S::vivid, 0.5), plan(0, S::bright, 0.4)}),
        (std::vector<std::pair<S, double>>{{S::bright, 0.6}, {S::bright, 0.6}, {S::bright, 0.4}}));
    EXPECT_EQ(looks({plan(0, S::warm, 0.6), plan(0, S::vivid, 0.5)}),
              (std::vector<std::pair<S, double>>{{S::warm, 0.6}, {S::vivid, 0.5}}));
    EXPECT_EQ(looks({plan(0, S::warm), plan(0, S::vivid), plan(0, S::vivid), plan(0, S::warm)}),
              (std::vector<std::pair<S, double>>{
                  {S::warm, 1}, {S::vivid, 1}, {S::vivid, 1}, {S::warm, 1}}));
}

}  // namespace
}  // namespace ql
