// The history line in both languages.
#include <gtest/gtest.h>

#include "edit/Adjustments.h"

namespace ql {
namespace {

using L = AppLanguage;

MaskLayer layer(std::string name) {
    MaskLayer l;
    l.id = Uuid::random();
    l.name = std::move(name);
    return l;
}

TEST(Changes, NothingAndReset) {
    Adjustments a;
    EXPECT_EQ(a.changes(a, L::vi), "Chỉnh khác");
    EXPECT_EQ(a.changes(a, L::en), "Other edit");

    Adjustments edited;
    edited.exposure = 1;
    edited.layers.push_back(layer("Da"));
    EXPECT_EQ(a.changes(edited, L::vi), "Đặt lại mọi chỉnh sửa");
    EXPECT_EQ(a.changes(edited, L::en), "Reset all edits");

    // A change below the threshold, or of a field the line doesn't list, is "other".
    Adjustments tiny;
    tiny.exposure = 0.00005;
    EXPECT_EQ(tiny.changes(a, L::vi), "Chỉnh khác");
    Adjustments midpoint;
    midpoint.vignetteMidpoint = 80;
    EXPECT_EQ(midpoint.changes(a, L::vi), "Chỉnh khác");
}

TEST(Changes, NumbersWithSignDecimalsAndTheVietnameseComma) {
    Adjustments old, now;
    now.exposure = 0.5;
    EXPECT_EQ(now.changes(old, L::vi), "Phơi sáng +0,50");
    EXPECT_EQ(now.changes(old, L::en), "Exposure +0.50");

    now = old;
    now.contrast = -4.4;
    EXPECT_EQ(now.changes(old, L::vi), "Tương phản -4");

    now = old;
    now.rotation = 1.26;
    EXPECT_EQ(now.changes(old, L::vi), "Nắn thẳng +1,3");
    EXPECT_EQ(now.changes(old, L::en), "Straighten +1.3");

    old.temperature = 40;
    now = old;
    now.temperature = 25;
    EXPECT_EQ(now.changes(old, L::en), "Temperature -15");
}

TEST(Changes, ThreeItemsThenACount) {
    Adjustments old, now;
    now.exposure = 1;
    now.contrast = 10;
    EXPECT_EQ(now.changes(old, L::vi), "Phơi sáng +1,00 · Tương phản +10");
    now.highlights = -20;
    EXPECT_EQ(now.changes(old, L::vi), "Phơi sáng +1,00 · Tương phản +10 · Vùng sáng -20");
    now.grain = 30;
    now.flipHorizontal = true;
    EXPECT_EQ(now.changes(old, L::vi),
              "Phơi sáng +1,00 · Tương phản +10 · Vùng sáng -20 · và 2 mục khác");
    EXPECT_EQ(now.changes(old, L::en),
              "Exposure +1.00 · Contrast +10 · Highlights -20 · and 2 more");
}

TEST(Changes, ItemsWithoutNumbers) {
    Adjustments old, now;
    now.rawTint = 12;
    EXPECT_EQ(now.changes(old, L::vi), "Cân bằng trắng RAW");
    now = old;
    now.curves.red.push_back({0.5, 0.6});
    now.mixLuminance[3] = 5;
    now.gradeBalance = 10;
    EXPECT_EQ(now.changes(old, L::en), "Curves · Colour mixer (HSL) · Colour grading");
    now = old;
    now.retouch.teeth = 20;
    now.background.clarity = 5;
    now.heals.emplace_back();
    EXPECT_EQ(now.changes(old, L::vi), "Khuôn mặt (AI) · Chỉnh theo vùng (AI) · Xóa vết, vật thừa");
    now = old;
    now.cropAspect = CropAspect::square;
    now.quarterTurns = 1;
    now.profile = ColorProfile::apple;
    EXPECT_EQ(now.changes(old, L::vi), "Cắt khung · Xoay · Màu gốc");
    now = old;
    now.backdrop = Backdrop{};
    now.lens.distortion = 5;
    now.portrait.smooth = 10;
    now.restore.tone = RestoreOld::Tone::grey;
    EXPECT_EQ(now.changes(old, L::vi),
              "Tách nền, thay nền (AI) · Hiệu chỉnh ống kính · Chân dung · và 1 mục khác");
}

TEST(Changes, StyleAndPreset) {
    Adjustments old;
    old.exposure = 0.2;  // keeps both sides off the neutral record
    Adjustments now = old;
    now.style = PhotoStyle::vivid;
    EXPECT_EQ(now.changes(old, L::vi), "Phong cách: Rực rỡ");
    EXPECT_EQ(now.changes(old, L::en), "Style: Vivid");
    now = old;
    now.styleStrength = 60;
    EXPECT_EQ(now.changes(old, L::vi), "Phong cách");

    now = old;
    now.preset = AppliedPreset{Uuid::random(), "Cưới ấm", true, Bytes{"{}"}, {}};
    EXPECT_EQ(now.changes(old, L::vi), "Preset: Cưới ấm");
    EXPECT_EQ(old.changes(now, L::en), "Preset: Cưới ấm");  // taken off: the old mark names it
    Adjustments off = now;
    off.preset->on = false;
    EXPECT_EQ(off.changes(now, L::vi), "Preset: Cưới ấm");
    EXPECT_EQ(now.changes(now, L::vi), "Chỉnh khác");
}

TEST(Changes, Layers) {
    Adjustments old, now;
    now.exposure = 0.1;  // keeps `now` off the neutral record
    old.exposure = 0.1;
    now.layers = {layer("Bầu trời"), layer("Vùng AI")};
    EXPECT_EQ(now.changes(old, L::vi), "Thêm lớp: Bầu trời, Vùng AI");
    EXPECT_EQ(now.changes(old, L::en), "Added layer: Bầu trời, Vùng AI");

    old.layers = {now.layers[0]};
    EXPECT_EQ(now.changes(old, L::vi), "Thêm lớp: Vùng AI");
    EXPECT_EQ(old.changes(now, L::vi), "Bỏ lớp");

    old = now;
    now.layers[1].edit.exposure = 0.3;
    EXPECT_EQ(now.changes(old, L::vi), "Lớp chỉnh cục bộ");
    now.layers[1].strokes.push_back(BrushStroke{{{0.1, 0.1}, {0.2, 0.2}}, 0.03, false, {}});
    EXPECT_EQ(now.changes(old, L::vi), "Nét cọ");
    EXPECT_EQ(now.changes(old, L::en), "Brush strokes");
}

TEST(Changes, FollowsTheCurrentLanguage) {
    Adjustments old, now;
    now.saturation = 12;
    language::set(AppLanguage::en);
    EXPECT_EQ(now.changes(old), "Saturation +12");
    language::set(AppLanguage::vi);
    EXPECT_EQ(now.changes(old), "Độ bão hòa +12");
}

}  // namespace
}  // namespace ql
