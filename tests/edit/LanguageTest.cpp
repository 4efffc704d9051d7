// Language choice, the catalogue parser, and English for every Vietnamese text.
#include <gtest/gtest.h>

#include <map>

#include <QFile>

#include "edit/AdjustmentFields.h"
#include "edit/StringsCatalog.h"

namespace ql {
namespace {

auto environment(std::map<std::string, std::string> values) {
    return [values](const char* name) -> std::optional<std::string> {
        const auto it = values.find(name);
        if (it == values.end()) return std::nullopt;
        return it->second;
    };
}

TEST(Language, SettingFirstThenEnvironment) {
    using language::choose;
    EXPECT_EQ(choose(std::nullopt, environment({})), AppLanguage::vi);
    EXPECT_EQ(choose(std::nullopt, environment({{"LANG", "en_US.UTF-8"}})), AppLanguage::en);
    EXPECT_EQ(choose(std::nullopt, environment({{"LANG", "vi_VN.UTF-8"}})), AppLanguage::vi);
    EXPECT_EQ(choose(std::nullopt, environment({{"LANG", "C.UTF-8"}})), AppLanguage::vi);
    EXPECT_EQ(choose("en", environment({{"LANG", "vi_VN.UTF-8"}})), AppLanguage::en);
    EXPECT_EQ(choose("vi", environment({{"LANG", "en_GB.UTF-8"}})), AppLanguage::vi);
    // A setting that names no language leaves the choice to the environment.
    EXPECT_EQ(choose("klingon", environment({{"LANG", "en_GB.UTF-8"}})), AppLanguage::en);
    // LANGUAGE outranks LANG and is a list whose first entry counts; empty values are skipped.
    EXPECT_EQ(choose(std::nullopt, environment({{"LANGUAGE", "en:vi"}, {"LANG", "vi_VN"}})),
              AppLanguage::en);
    EXPECT_EQ(choose(std::nullopt,
                     environment({{"LANGUAGE", ""}, {"LC_ALL", "vi_VN"}, {"LANG", "en_US"}})),
              AppLanguage::vi);
    EXPECT_EQ(choose(std::nullopt, environment({{"LC_MESSAGES", "en_AU"}, {"LANG", "vi_VN"}})),
              AppLanguage::en);
}

TEST(Catalogue, ParsesEntriesEscapesAndComments) {
    std::string error;
    const auto c = StringsCatalog::parse(
        "\xEF\xBB\xBF/* header\n spanning */\n\"Đỏ\" = \"Red\";\n// note\n"
        "\"say \\\"hi\\\"\"=\"a\\\\b\\nc\";\"\\U00E9\" = \"e\";\n\"Đỏ\" = \"Crimson\";",
        &error);
    ASSERT_TRUE(c) << error;
    EXPECT_EQ(c->size(), 3u);
    EXPECT_EQ(*c->find("Đỏ"), "Crimson");  // the later entry wins
    EXPECT_EQ(*c->find("say \"hi\""), "a\\b\nc");
    EXPECT_EQ(*c->find("é"), "e");
    EXPECT_EQ(c->find("Lục"), nullptr);
}

TEST(Catalogue, ReportsTheLineOfAnError) {
    std::string error;
    EXPECT_FALSE(StringsCatalog::parse("\"a\" = \"b\";\n\"c\" = \"d\"\n\"e\" = \"f\";", &error));
    EXPECT_NE(error.find("line 3"), std::string::npos) << error;
    EXPECT_FALSE(StringsCatalog::parse("\"a\" = \"unterminated;", &error));
    EXPECT_FALSE(StringsCatalog::parse("\"a\" = \"\\q\";", &error));
    EXPECT_TRUE(StringsCatalog::parse("", &error));
}

const StringsCatalog& bundled() {
    static const StringsCatalog catalog = [] {
        QFile file(":/quillarium/Localizable.strings");
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        const QByteArray text = file.readAll();
        std::string error;
        auto parsed =
            StringsCatalog::parse(std::string_view(text.constData(), text.size()), &error);
        EXPECT_TRUE(parsed) << error;
        return parsed.value_or(StringsCatalog{});
    }();
    return catalog;
}

template <NamedEnum E>
void expectLabelsTranslated() {
    for (auto e : allCases<E>())
        EXPECT_NE(bundled().find(enumLabel(e)), nullptr) << enumLabel(e);
}

TEST(Catalogue, EveryTextOfTheRecordHasEnglish) {
    ASSERT_GT(bundled().size(), 100u);
    for (const auto& f : adjustmentFields())
        EXPECT_NE(bundled().find(f.label), nullptr) << f.key << ": " << f.label;
    expectLabelsTranslated<CurveChannel>();
    expectLabelsTranslated<ColorBand>();
    expectLabelsTranslated<CropAspect>();
    expectLabelsTranslated<ColorProfile>();
    expectLabelsTranslated<PhotoStyle>();
    expectLabelsTranslated<SettingsGroup>();
    expectLabelsTranslated<Backdrop::Subject>();
    expectLabelsTranslated<Backdrop::Kind>();
    for (auto s : allCases<PhotoStyle>())
        EXPECT_NE(bundled().find(blurb(s)), nullptr);
    for (const char* text : {"Cân bằng trắng RAW", "Trộn màu (HSL)", "Phân màu",
                             "Chỉnh theo vùng (AI)", "Thêm lớp: ", "Bỏ lớp", "Nét cọ", "Chỉnh khác",
                             "Đặt lại mọi chỉnh sửa", "và %lld mục khác"})
        EXPECT_NE(bundled().find(text), nullptr) << text;
}

TEST(Catalogue, LookupFallsBackToTheKey) {
    EXPECT_EQ(localized("Phơi sáng", AppLanguage::en), "Exposure");
    EXPECT_EQ(localized("Phơi sáng", AppLanguage::vi), "Phơi sáng");
    EXPECT_EQ(localized("Không có trong danh mục", AppLanguage::en), "Không có trong danh mục");
}

}  // namespace
}  // namespace ql
