#include "edit/PhotoMeta.h"

#include <gtest/gtest.h>

namespace ql {
namespace {

std::optional<std::string> dateOf(const std::string& typed) {
    PhotoMeta m;
    m.dateCreated = typed;
    return m.iptcDate();
}

TEST(PhotoMeta, DatesEitherWayRound) {
    EXPECT_EQ(dateOf("29/10/2026"), "20261029");
    EXPECT_EQ(dateOf("2026-10-29"), "20261029");
    EXPECT_EQ(dateOf(" 2026.10.29\t"), "20261029");
    EXPECT_EQ(dateOf("1/2/2026"), "20260201");
    EXPECT_EQ(dateOf("10/2026"), "20261000");
    EXPECT_EQ(dateOf("2026-7"), "20260700");
    EXPECT_EQ(dateOf("1968"), "19680000");
    EXPECT_EQ(dateOf("1800"), "18000000");
    EXPECT_EQ(dateOf("2200-12-31"), "22001231");
}

TEST(PhotoMeta, BadDatesGiveNothing) {
    for (const char* bad : {"",           "   ",          "1799",
                            "2201",       "0000",         "26",
                            "20261029",   "2026-13-01",   "2026-12-32",
                            "32/12/2026", "2026-10-29-1", "2026--29",
                            "2026-10-",   "29/10/26",     "2O26",
                            "2026-1O-29", "+2026",        "2026-+1",
                            "2026 10 29", "12/29/2026",   "2026-99999999999999999999",
                            "٢٠٢٦"})
        EXPECT_EQ(dateOf(bad), std::nullopt) << bad;
}

TEST(PhotoMeta, KeywordsSplitTrimmedAndOnce) {
    EXPECT_EQ(PhotoMeta::parseKeywords("a, A; b"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(PhotoMeta::parseKeywords(" sea ;; ,  harbour boats ,sea,"),
              (std::vector<std::string>{"sea", "harbour boats"}));
    EXPECT_EQ(PhotoMeta::parseKeywords(""), std::vector<std::string>{});
    EXPECT_EQ(PhotoMeta::parseKeywords(" , ;\t"), std::vector<std::string>{});
    // Vietnamese capitals, and the same word composed and decomposed.
    EXPECT_EQ(PhotoMeta::parseKeywords("Đà Nẵng, đà nẵng; ĐÀ NẴNG, Huế, HUE\xCC\x82\xCC\x81, Hue"),
              (std::vector<std::string>{"Đà Nẵng", "Huế", "Hue"}));
}

TEST(PhotoMeta, JsonKeepsOrderAndFillsMissingKeys) {
    PhotoMeta m;
    m.title = "Cầu Rồng";
    m.keywords = {"bridge", "night"};
    m.jobID = "J-7";
    const OrderedJson j = Codec<PhotoMeta>::write(m);
    std::vector<std::string> keys;
    for (const auto& [key, value] : j.items())
        keys.push_back(key);
    EXPECT_EQ(keys, (std::vector<std::string>{
                        "title",       "caption",   "keywords",   "creator",      "event",
                        "place",       "city",      "headline",   "creatorTitle", "credit",
                        "source",      "copyright", "usageTerms", "instructions", "country",
                        "dateCreated", "email",     "phone",      "website",      "jobID"}));
    PhotoMeta back;
    ASSERT_TRUE(Codec<PhotoMeta>::read(Json::parse(j.dump()), back));
    EXPECT_EQ(back, m);

    PhotoMeta partial;
    partial.city = "stale";
    ASSERT_TRUE(Codec<PhotoMeta>::read(
        Json::parse(R"({"caption": "Đêm", "keywords": ["a", 3], "city": 5})"), partial));
    PhotoMeta expected;
    expected.caption = "Đêm";
    EXPECT_EQ(partial, expected);
    EXPECT_FALSE(Codec<PhotoMeta>::read(Json::parse("[]"), partial));
}

TEST(PhotoMeta, EmptyMeansNothingButBlanks) {
    PhotoMeta m;
    EXPECT_TRUE(m.empty());
    m.keywords = {" ", ""};
    m.caption = " \n";
    EXPECT_TRUE(m.empty());
    m.jobID = "x";
    EXPECT_FALSE(m.empty());
    m.jobID.clear();
    m.keywords.push_back("k");
    EXPECT_FALSE(m.empty());
}

}  // namespace
}  // namespace ql
