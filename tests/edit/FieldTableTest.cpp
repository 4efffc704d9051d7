// The field table that every consumer reads: groups, the colour cube's inputs, and taking.
#include <gtest/gtest.h>

#include <map>

#include "RandomRecords.h"
#include "edit/AdjustmentFields.h"
#include "edit/LUTKey.h"

namespace ql {
namespace {

TEST(FieldTable, FiftyTwoFieldsWithUniqueKeysAndSaneRanges) {
    const auto fields = adjustmentFields();
    ASSERT_EQ(fields.size(), 52u);
    EXPECT_EQ(fields.front().key, "rawTemperature");
    EXPECT_EQ(fields.back().key, "lens");
    std::set<std::string_view> keys;
    for (const auto& f : fields) {
        EXPECT_TRUE(keys.insert(f.key).second) << f.key;
        EXPECT_FALSE(f.label.empty()) << f.key;
        if (f.range) {
            EXPECT_LT(f.range->min, f.range->max) << f.key;
            EXPECT_GT(f.range->step, 0) << f.key;
            // The neutral value lies on the slider.
            const auto neutral = f.number(Adjustments::defaults());
            if (neutral) {
                EXPECT_GE(*neutral, f.range->min) << f.key;
                EXPECT_LE(*neutral, f.range->max) << f.key;
            }
        }
    }
    EXPECT_EQ(adjustmentField("exposure")->range->step, 0.01);
    EXPECT_EQ(adjustmentField("sharpening")->range->max, 150);
    EXPECT_EQ(adjustmentField("nosuch"), nullptr);
}

TEST(FieldTable, SettingsGroupsCarryTheirFields) {
    std::map<SettingsGroup, std::vector<std::string_view>> byGroup;
    std::vector<std::string_view> ungrouped;
    for (const auto& f : adjustmentFields()) {
        if (f.group)
            byGroup[*f.group].push_back(f.key);
        else
            ungrouped.push_back(f.key);
    }
    using V = std::vector<std::string_view>;
    EXPECT_EQ(byGroup[SettingsGroup::whiteBalance],
              (V{"rawTemperature", "rawTint", "temperature", "tint"}));
    EXPECT_EQ(byGroup[SettingsGroup::local], (V{"layers", "people", "background"}));
    EXPECT_EQ(byGroup[SettingsGroup::style], (V{"profile", "style", "styleStrength"}));
    EXPECT_EQ(byGroup[SettingsGroup::detail],
              (V{"sharpening", "noiseReduction", "skinEven", "retouch", "lens"}));
    EXPECT_EQ(byGroup[SettingsGroup::geometry],
              (V{"quarterTurns", "flipHorizontal", "perspectiveVertical", "perspectiveHorizontal",
                 "rotation", "crop", "cropAspect"}));
    EXPECT_EQ(byGroup[SettingsGroup::color].size(), 9u);
    EXPECT_EQ(ungrouped, (V{"portrait", "restore", "heals", "expertNote", "preset", "backdrop"}));
    EXPECT_EQ(usualSettingsGroups().size(), 9u);
    EXPECT_FALSE(usualSettingsGroups().contains(SettingsGroup::geometry));
}

TEST(FieldTable, TakingCopiesOnlyTheNamedGroups) {
    std::mt19937_64 rng(3);
    const Adjustments source = testing::randomAdjustments(rng);
    const Adjustments target;

    const Adjustments light = target.taking({SettingsGroup::light}, source);
    EXPECT_EQ(light.exposure, source.exposure);
    EXPECT_EQ(light.blacks, source.blacks);
    EXPECT_EQ(light.texture, 0);
    EXPECT_FALSE(light.crop);

    const Adjustments usual = target.taking(usualSettingsGroups(), source);
    EXPECT_FALSE(usual.crop);  // geometry stays with the target
    EXPECT_EQ(usual.quarterTurns, 0);
    EXPECT_EQ(usual.lens, source.lens);
    EXPECT_EQ(usual.layers, source.layers);
    // What belongs to one frame's people and marks never travels.
    EXPECT_EQ(usual.portrait, Portrait{});
    EXPECT_TRUE(usual.heals.empty());
    EXPECT_FALSE(usual.backdrop);
    EXPECT_FALSE(usual.preset);
    EXPECT_FALSE(usual.expertNote);

    const auto cases = allCases<SettingsGroup>();
    const std::set<SettingsGroup> all(cases.begin(), cases.end());
    EXPECT_EQ(target.taking(all, source).crop, source.crop);
    EXPECT_EQ(target.taking({}, source), target);
}

TEST(FieldTable, LutKeyFollowsExactlyTheCubeFields) {
    std::vector<std::string_view> cube;
    for (const auto& f : adjustmentFields())
        if (f.cube) cube.push_back(f.key);
    EXPECT_EQ(cube.size(), 18u);

    EXPECT_TRUE(LUTKey(Adjustments::defaults()).isIdentity());
    std::mt19937_64 rng(5);
    const Adjustments random = testing::randomAdjustments(rng);
    for (const auto& f : adjustmentFields()) {
        Adjustments a;
        f.copy(random, a);
        EXPECT_EQ(LUTKey(a).isIdentity(), !f.cube) << f.key;
        if (!f.cube) {
            EXPECT_EQ(LUTKey(a), LUTKey(Adjustments::defaults())) << f.key;
        }
    }
}

TEST(FieldTable, CropAspectRatios) {
    EXPECT_FALSE(ratio(CropAspect::free, 1.5));
    EXPECT_EQ(ratio(CropAspect::original, 1.5), 1.5);
    EXPECT_EQ(ratio(CropAspect::r4x5, 1.5), 0.8);
    EXPECT_DOUBLE_EQ(*ratio(CropAspect::r2x3, 1), 2.0 / 3.0);
    EXPECT_DOUBLE_EQ(*ratio(CropAspect::r16x9, 1), 16.0 / 9.0);
    EXPECT_EQ(ratio(CropAspect::r9x16, 1), 0.5625);
    for (auto aspect : allCases<CropAspect>())
        if (aspect != CropAspect::free) {
            EXPECT_GT(*ratio(aspect, 1.2), 0);
        }
}

}  // namespace
}  // namespace ql
