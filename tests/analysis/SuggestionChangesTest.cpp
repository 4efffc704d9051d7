#include <gtest/gtest.h>

#include <set>

#include "analysis/Suggestion.h"
#include "edit/AppLanguage.h"

namespace ql {
namespace {

class SuggestionChangesTest : public ::testing::Test {
  protected:
    void SetUp() override { language::set(AppLanguage::vi); }

    using Line = std::array<std::string, 3>;
    static std::vector<Line> lines(const Adjustments& from, const Adjustments& to, bool isRAW) {
        std::vector<Line> out;
        for (const SuggestionChange& c : changes(from, to, isRAW))
            out.push_back({c.label, c.from, c.to});
        return out;
    }
};

TEST_F(SuggestionChangesTest, OnlyRealDifferencesInOrder) {
    Adjustments from;
    from.rawTemperature = 5500;
    EXPECT_TRUE(changes(from, from, true).empty());

    Adjustments to = from;
    to.contrast = 0.0005;  // below the threshold
    to.exposure = 0.35;
    to.temperature = -12;
    to.vibrance = 10;
    to.people.exposure = 0.5;
    const auto rows = changes(from, to, false);
    EXPECT_EQ(lines(from, to, false), (std::vector<Line>{{"Nhiệt độ màu", "0", "-12"},
                                                         {"Phơi sáng", "0.00", "+0.35"},
                                                         {"Độ rực màu", "0", "+10"},
                                                         {"Người · phơi sáng", "0.00", "+0.50"}}));
    std::set<std::string> ids;
    for (const SuggestionChange& c : rows)
        ids.insert(c.id);
    EXPECT_EQ(ids.size(), rows.size());

    // RAW reads the RAW white balance, not the slider one.
    EXPECT_EQ(lines(from, to, true).size(), 3u);
}

TEST_F(SuggestionChangesTest, RawWhiteBalance) {
    Adjustments from, to;
    from.rawTemperature = 5500;
    from.rawTint = 4;
    to.rawTint = -3;
    EXPECT_EQ(lines(from, to, true), (std::vector<Line>{{"Nhiệt độ màu", "5500 K", "Như lúc chụp"},
                                                        {"Sắc thái", "+4", "-3"}}));
    to.rawTemperature = 5500.0004;
    to.rawTint.reset();
    EXPECT_EQ(lines(from, to, true), (std::vector<Line>{{"Sắc thái", "+4", "Như lúc chụp"}}));
}

TEST_F(SuggestionChangesTest, BandsAndGrading) {
    Adjustments from, to;
    to.mixSaturation[1] = -15;  // orange
    to.mixHue[5] = 8;           // blue
    to.mixLuminance[1] = 5;
    to.gradeHighlights = {45, 20, 0};
    to.gradeMidtones = {200, 30, 0};  // not listed
    EXPECT_EQ(lines(from, to, false),
              (std::vector<Line>{{"Cam · bão hòa", "0", "-15"},
                                 {"Cam · độ sáng", "0", "+5"},
                                 {"Xanh dương · sắc độ", "0", "+8"},
                                 {"Màu vùng sáng", "0° / 0 / 0", "45° / 20 / 0"}}));
    from.gradeShadows = {220, 10, -5};
    to.gradeShadows = {220, 10, -4};
    const auto both = lines(from, to, false);
    ASSERT_EQ(both.size(), 5u);
    EXPECT_EQ(both[3], (Line{"Màu vùng tối", "220° / 10 / -5", "220° / 10 / -4"}));
}

}  // namespace
}  // namespace ql
