// Encoding: every key in declared order, optional ones only when present, and decode(encode(x))
// gives x back exactly.
#include <gtest/gtest.h>

#include "RandomRecords.h"
#include "edit/AdjustmentFields.h"

namespace ql {
namespace {

std::vector<std::string> keysOf(const OrderedJson& object) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : object.items())
        keys.push_back(key);
    return keys;
}

TEST(RoundTrip, RandomRecordsComeBackExactly) {
    std::mt19937_64 rng(20261121);
    for (int i = 0; i < 200; ++i) {
        const Adjustments a = testing::randomAdjustments(rng);
        for (bool pretty : {false, true}) {
            std::string error;
            const auto back = Adjustments::decode(a.encode(pretty), &error);
            ASSERT_TRUE(back) << error;
            ASSERT_EQ(*back, a) << a.encode(true);
        }
    }
}

TEST(RoundTrip, RandomRecordsDifferFromTheDefaultInEveryField) {
    // Guards the round trip above: a field the filler leaves at its default proves nothing.
    std::mt19937_64 rng(7);
    const Adjustments a = testing::randomAdjustments(rng);
    for (const auto& f : adjustmentFields())
        EXPECT_FALSE(f.equal(a, Adjustments::defaults())) << f.key;
}

TEST(RoundTrip, KeysInDeclaredOrderOptionalOnlyWhenPresent) {
    std::mt19937_64 rng(11);
    const Adjustments full = testing::randomAdjustments(rng);
    std::vector<std::string> declared;
    for (const auto& f : adjustmentFields())
        declared.emplace_back(f.key);
    EXPECT_EQ(keysOf(full.toJson()), declared);

    std::vector<std::string> required;
    for (const auto& key : declared)
        if (key != "rawTemperature" && key != "rawTint" && key != "crop" && key != "style" &&
            key != "expertNote" && key != "preset" && key != "backdrop")
            required.push_back(key);
    EXPECT_EQ(keysOf(Adjustments::defaults().toJson()), required);
    EXPECT_EQ(required.size(), 45u);
}

TEST(RoundTrip, MembersEncodeAsTheirFieldNames) {
    Adjustments a;
    a.crop = CropRect{0.1, 0.2, 0.3, 0.4};
    a.lens.profile = true;
    const OrderedJson j = a.toJson();
    EXPECT_EQ(j["curves"].dump(),
              R"({"master":[{"x":0.0,"y":0.0},{"x":1.0,"y":1.0}],"red":[{"x":0.0,"y":0.0},)"
              R"({"x":1.0,"y":1.0}],"green":[{"x":0.0,"y":0.0},{"x":1.0,"y":1.0}],)"
              R"("blue":[{"x":0.0,"y":0.0},{"x":1.0,"y":1.0}]})");
    EXPECT_EQ(j["crop"].dump(), R"({"x":0.1,"y":0.2,"w":0.3,"h":0.4})");
    EXPECT_EQ(j["cropAspect"], "original");
    EXPECT_EQ(j["lens"]["profile"], true);
    EXPECT_EQ(j["quarterTurns"].dump(), "0");
    EXPECT_FALSE(Adjustments::defaults().toJson()["lens"].contains("profile"));
}

TEST(RoundTrip, PresetBytesTravelAsBase64) {
    Adjustments a;
    a.preset = AppliedPreset{*Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"), "Cưới", true,
                             Bytes{"{\"exposure\":1}"}, Bytes{std::string("\0\xff", 2)}};
    const OrderedJson j = a.toJson()["preset"];
    EXPECT_EQ(j["id"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(j["before"], "eyJleHBvc3VyZSI6MX0=");
    EXPECT_EQ(j["after"], "AP8=");
    EXPECT_EQ(Adjustments::decode(a.encode())->preset, a.preset);
}

TEST(RoundTrip, EqualityIsExact) {
    Adjustments a, b;
    b.exposure = 1e-12;
    EXPECT_NE(a, b);
    b.exposure = -0.0;
    EXPECT_EQ(a, b);
    b = a;
    b.curves.green.push_back({1, 1});
    EXPECT_NE(a, b);
    b = a;
    b.portrait.clothes.emplace_back();
    EXPECT_NE(a, b);
}

}  // namespace
}  // namespace ql
