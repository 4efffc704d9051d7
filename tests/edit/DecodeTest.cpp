// The forgiving decoder: any subset of keys, a failing key keeps its default, and only text that
// holds no JSON object is an error.
#include <gtest/gtest.h>

#include "edit/Adjustments.h"

namespace ql {
namespace {

Adjustments decoded(std::string_view text) {
    std::string error;
    auto a = Adjustments::decode(text, &error);
    EXPECT_TRUE(a.has_value()) << text << ": " << error;
    return a.value_or(Adjustments{});
}

std::string failure(std::string_view text) {
    std::string error;
    auto a = Adjustments::decode(text, &error);
    EXPECT_FALSE(a.has_value()) << text;
    return error;
}

TEST(Decode, EmptyObjectIsTheNeutralRecord) {
    EXPECT_EQ(decoded("{}"), Adjustments::defaults());
    EXPECT_EQ(decoded("  {\n}\n"), Adjustments::defaults());
}

TEST(Decode, NeutralValuesOfTheTable) {
    const Adjustments& a = Adjustments::defaults();
    EXPECT_FALSE(a.rawTemperature);
    EXPECT_EQ(a.gradeBlending, 50);
    EXPECT_EQ(a.vignetteMidpoint, 50);
    EXPECT_EQ(a.styleStrength, 100);
    EXPECT_EQ(a.cropAspect, CropAspect::original);
    EXPECT_EQ(a.profile, ColorProfile::camera);
    EXPECT_EQ(a.curves.master, (std::vector<CurvePoint>{{0, 0}, {1, 1}}));
    EXPECT_EQ(a.curves[CurveChannel::blue], a.curves.master);
    EXPECT_EQ(a.lens.purpleLo, 250);
    EXPECT_EQ(a.lens.greenHi, 165);
    EXPECT_EQ(a.restore.markSize, 30);
    EXPECT_TRUE(a.restore.protectDetail);
    EXPECT_TRUE(a.restore.isNeutral());
    EXPECT_TRUE(a.people.isNeutral());
}

TEST(Decode, WrongTypeKeepsOnlyThatKeysDefault) {
    const Adjustments a = decoded(R"({"exposure": "high", "contrast": 12, "tint": null,
                                      "flipHorizontal": 1, "quarterTurns": "1",
                                      "expertNote": 5, "grain": true, "shadows": [3]})");
    EXPECT_EQ(a.exposure, 0);
    EXPECT_EQ(a.contrast, 12);
    EXPECT_EQ(a.tint, 0);
    EXPECT_FALSE(a.flipHorizontal);
    EXPECT_EQ(a.quarterTurns, 0);
    EXPECT_FALSE(a.expertNote);
    EXPECT_EQ(a.grain, 0);
    EXPECT_EQ(a.shadows, 0);
}

TEST(Decode, SpecExampleIsComplete) {
    const Adjustments a = decoded(
        R"({"exposure": 0.5, "contrast": 10, "curves": {"master": [{"x": 0, "y": 0},
            {"x": 0.5, "y": 0.6}, {"x": 1, "y": 1}]}})");
    EXPECT_EQ(a.exposure, 0.5);
    EXPECT_EQ(a.contrast, 10);
    ASSERT_EQ(a.curves.master.size(), 3u);
    EXPECT_EQ(a.curves.master[1], (CurvePoint{0.5, 0.6}));
    EXPECT_EQ(a.curves.red, ToneCurves::straight);  // absent channels stay identity
}

TEST(Decode, MixerArraysOfAnyOtherLengthAreZeros) {
    EXPECT_EQ(decoded(R"({"mixHue": [1, 2, 3]})").mixHue, BandValues{});
    EXPECT_EQ(decoded(R"({"mixHue": [1,2,3,4,5,6,7,8,9]})").mixHue, BandValues{});
    EXPECT_EQ(decoded(R"({"mixSaturation": [1,2,3,4,5,6,7,"8"]})").mixSaturation, BandValues{});
    EXPECT_EQ(decoded(R"({"mixLuminance": [1,2,3,4,5,6,7,8]})").mixLuminance,
              (BandValues{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(Decode, QuarterTurnsWrap) {
    EXPECT_EQ(decoded(R"({"quarterTurns": 7})").quarterTurns, 3);
    EXPECT_EQ(decoded(R"({"quarterTurns": 5})").quarterTurns, 1);
    EXPECT_EQ(decoded(R"({"quarterTurns": -1})").quarterTurns, 3);
    EXPECT_EQ(decoded(R"({"quarterTurns": 2.0})").quarterTurns, 2);
    EXPECT_EQ(decoded(R"({"quarterTurns": 1099511627777})").quarterTurns, 1);
    EXPECT_EQ(decoded(R"({"quarterTurns": 2.5})").quarterTurns, 0);
    EXPECT_EQ(decoded(R"({"quarterTurns": 1e300})").quarterTurns, 0);
    EXPECT_EQ(decoded(R"({"quarterTurns": 18446744073709551615})").quarterTurns, 0);
}

TEST(Decode, HugeNumbers) {
    // Large but finite is a value; beyond a double the text is no number the record can hold.
    const Adjustments a = decoded(R"({"highlights": 1.7976931348623157e308,
                                      "shadows": 123456789012345678901234567890,
                                      "grain": -4.9e-324})");
    EXPECT_EQ(a.highlights, 1.7976931348623157e308);
    EXPECT_EQ(a.shadows, 123456789012345678901234567890.0);
    EXPECT_EQ(a.grain, -4.9e-324);
    EXPECT_NE(failure(R"({"exposure": 1e999})").find("overflow"), std::string::npos);
    EXPECT_NE(failure(R"({"exposure": -1e999})").find("overflow"), std::string::npos);
}

TEST(Decode, UnknownWordsGiveTheDefaultCase) {
    const Adjustments a = decoded(R"({"cropAspect": "r7x5", "profile": "fuji", "style": "punk"})");
    EXPECT_EQ(a.cropAspect, CropAspect::original);
    EXPECT_EQ(a.profile, ColorProfile::camera);
    EXPECT_FALSE(a.style);
    const Adjustments b =
        decoded(R"({"cropAspect": "r16x9", "profile": "apple", "style": "mono"})");
    EXPECT_EQ(b.cropAspect, CropAspect::r16x9);
    EXPECT_EQ(b.profile, ColorProfile::apple);
    EXPECT_EQ(b.style, PhotoStyle::mono);
}

TEST(Decode, OptionalMembersOnlyWhenValid) {
    EXPECT_FALSE(decoded(R"({"crop": {"x": 0.1, "y": 0.1, "w": 0.5}})").crop);
    EXPECT_FALSE(decoded(R"({"crop": {"x": 0.1, "y": 0.1, "w": 0.5, "h": 0}})").crop);
    EXPECT_FALSE(decoded(R"({"crop": [0, 0, 1, 1]})").crop);
    EXPECT_EQ(decoded(R"({"crop": {"x": 0.1, "y": 0.2, "w": 0.5, "h": 0.4}})").crop,
              (CropRect{0.1, 0.2, 0.5, 0.4}));

    EXPECT_FALSE(decoded(R"({"preset": {"name": "Cưới", "on": true, "before": "e30="}})").preset);
    const auto preset = decoded(R"({"preset": {"id": "e621e1f8-c36c-495a-93fc-0c247a3e6e5f",
        "name": "Cưới", "on": true, "before": "e30="}})")
                            .preset;
    ASSERT_TRUE(preset);
    EXPECT_EQ(preset->id.string(), "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(preset->before.data, "{}");
    EXPECT_FALSE(preset->after);
    EXPECT_FALSE(decoded(R"({"preset": {"id": "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
        "name": "x", "on": true, "before": "not base64!"}})")
                     .preset);

    // A backdrop reads by default values: a partial object is a backdrop.
    const auto backdrop = decoded(R"({"backdrop": {"on": true, "kind": "color", "red": 0.2,
                                                   "scale": "big"}})")
                              .backdrop;
    ASSERT_TRUE(backdrop);
    EXPECT_TRUE(backdrop->on);
    EXPECT_EQ(backdrop->kind, Backdrop::Kind::color);
    EXPECT_EQ(backdrop->red, 0.2);
    EXPECT_EQ(backdrop->scale, 1);
    EXPECT_FALSE(decoded(R"({"backdrop": "blur"})").backdrop);
}

TEST(Decode, NestedMembersFailPerKey) {
    const Adjustments a = decoded(R"({
        "curves": {"master": "straight", "red": [{"x": 0, "y": 0.1}, {"x": 1, "y": 0.9}]},
        "gradeShadows": {"hue": 200, "saturation": "lots", "luminance": -5},
        "portrait": {"smooth": 40, "eyeColor": {"hue": "blue", "amount": 30},
                     "clothes": [{"hue": 20, "strokes": 4}], "bodySkin": "yes"},
        "lens": {"profile": false, "purple": "x", "caRed": 1.5},
        "restore": {"tone": "sepia", "markSize": null},
        "retouch": 7,
        "people": {"exposure": 0.3, "tint": {}}
    })");
    EXPECT_EQ(a.curves.master, ToneCurves::straight);
    EXPECT_EQ(a.curves.red, (std::vector<CurvePoint>{{0, 0.1}, {1, 0.9}}));
    EXPECT_EQ(a.gradeShadows, (GradeWheel{200, 0, -5}));
    EXPECT_EQ(a.portrait.smooth, 40);
    EXPECT_EQ(a.portrait.eyeColor, (Recolor{0, 30, 0}));
    ASSERT_EQ(a.portrait.clothes.size(), 1u);
    EXPECT_EQ(a.portrait.clothes[0].hue, 20);
    EXPECT_TRUE(a.portrait.clothes[0].strokes.empty());
    EXPECT_FALSE(a.portrait.bodySkin);
    EXPECT_EQ(a.lens.profile, false);
    EXPECT_EQ(a.lens.purple, 0);
    EXPECT_EQ(a.lens.caRed, 1.5);
    EXPECT_EQ(a.restore.tone, RestoreOld::Tone::sepia);
    EXPECT_EQ(a.restore.markSize, 30);
    EXPECT_FALSE(a.restore.isNeutral());  // sepia alone tones the picture
    EXPECT_EQ(a.retouch, FaceRetouch{});
    EXPECT_EQ(a.people.exposure, 0.3);
    EXPECT_EQ(a.people.tint, 0);
}

TEST(Decode, DamagedElementsAreDroppedNotTheirSiblings) {
    const Adjustments a = decoded(R"({"layers": [
        {"id": "11111111-2222-3333-4444-555555555555", "kind": "radial", "name": "Da"},
        {"kind": "brush", "name": "no id"},
        42,
        {"id": "AAAAAAAA-2222-3333-4444-555555555555", "kind": "laser", "visible": false,
         "strokes": [{"points": [{"x": 0.1, "y": 0.2}, {"x": 0.3}], "radius": 0.05}]}
    ], "heals": [{"points": [], "erase": true, "source": {"x": 0.5}}, null]})");
    ASSERT_EQ(a.layers.size(), 2u);
    EXPECT_EQ(a.layers[0].name, "Da");
    EXPECT_EQ(a.layers[0].kind, MaskLayer::Kind::radial);
    EXPECT_TRUE(a.layers[0].visible);
    EXPECT_EQ(a.layers[1].kind, MaskLayer::Kind::brush);  // unknown kind keeps the default
    EXPECT_FALSE(a.layers[1].visible);
    ASSERT_EQ(a.layers[1].strokes.size(), 1u);
    EXPECT_EQ(a.layers[1].strokes[0].points, (std::vector<NPoint>{{0.1, 0.2}}));
    ASSERT_EQ(a.heals.size(), 1u);
    EXPECT_TRUE(a.heals[0].erase);
    EXPECT_FALSE(a.heals[0].source);
}

TEST(Decode, FollowEdgesDefaultsByLayerName) {
    MaskLayer layer;
    EXPECT_FALSE(layer.followsEdges());
    layer.name = MaskLayer::aiRegionName;
    EXPECT_TRUE(layer.followsEdges());
    layer.followEdges = false;
    EXPECT_FALSE(layer.followsEdges());
}

TEST(Decode, UnknownKeysAreIgnored) {
    const Adjustments a = decoded(R"({"future": {"deep": [1, 2]}, "exposure": 1.25,
                                      "Exposure": 3})");
    EXPECT_EQ(a.exposure, 1.25);
}

TEST(Decode, OnlyTextWithoutAnObjectFails) {
    EXPECT_NE(failure("[]").find("array"), std::string::npos);
    EXPECT_NE(failure("42").find("number"), std::string::npos);
    EXPECT_NE(failure("null").find("null"), std::string::npos);
    EXPECT_NE(failure("\"{}\"").find("string"), std::string::npos);
    EXPECT_FALSE(failure("").empty());
    EXPECT_FALSE(failure("{\"exposure\": }").empty());
    EXPECT_FALSE(failure("{} {}").empty());
    EXPECT_EQ(failure("{\"a\": 1").find("[json.exception"), std::string::npos);
}

TEST(Decode, InvalidUtf8IsAnError) {
    EXPECT_FALSE(failure("{\"expertNote\": \"caf\xC3\"}").empty());
    EXPECT_FALSE(failure("{\"\xFF\": 1}").empty());
}

TEST(Decode, DeepNestingIsRefusedWithoutRecursion) {
    const std::string deep = std::string(200000, '[') + std::string(200000, ']');
    EXPECT_NE(failure(deep).find("nested"), std::string::npos);
    const std::string deepInKey = "{\"future\": " + std::string(5000, '{') + "}";
    EXPECT_FALSE(failure(deepInKey).empty());
    // Brackets inside strings are text, not nesting.
    const std::string quoted = "{\"expertNote\": \"" + std::string(1000, '[') + "\"}";
    EXPECT_EQ(decoded(quoted).expertNote, std::string(1000, '['));
}

TEST(Decode, WithoutPreset) {
    Adjustments before;
    before.exposure = 0.7;
    Adjustments after = before;
    after.contrast = 30;
    after.preset = AppliedPreset{Uuid::random(), "Cưới", true, Bytes{before.encode()}, {}};
    EXPECT_EQ(after.withoutPreset(), before);

    after.preset->on = false;
    Adjustments dropped = after;
    dropped.preset.reset();
    EXPECT_EQ(after.withoutPreset(), dropped);

    after.preset->on = true;
    after.preset->before = Bytes{"not json"};
    EXPECT_EQ(after.withoutPreset(), dropped);
    EXPECT_EQ(Adjustments::defaults().withoutPreset(), Adjustments::defaults());
}

}  // namespace
}  // namespace ql
