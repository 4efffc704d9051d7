// Recipe file names and the recipe store: the token order, forbidden characters, the fallbacks,
// and loading that is all or nothing.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>

#include <unistd.h>

#include "edit/ExportRecipe.h"

namespace ql {
namespace {

namespace fs = std::filesystem;

ExportRecipe named(std::string naming) {
    ExportRecipe r = ExportRecipe::added();
    r.naming = std::move(naming);
    return r;
}

std::chrono::system_clock::time_point localNoon(int y, int m, int d) {
    std::tm t{};
    t.tm_year = y - 1900, t.tm_mon = m - 1, t.tm_mday = d, t.tm_hour = 12, t.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&t));
}

TEST(RecipeFileName, TokensAreReplacedInOrder) {
    const auto date = localNoon(2026, 10, 29);
    const std::string src = "/shoot/IMG_0042.CR3";
    EXPECT_EQ(named("{ten}").fileName(src, 7, date, "Le Phuc Sinh"), "IMG_0042");
    EXPECT_EQ(named("{du-an}_{so}").fileName(src, 7, date, "Le"), "Le_007");
    EXPECT_EQ(named("{ngay} {ten} {so}").fileName(src, 1234, date, "p"),
              "2026-10-29 IMG_0042 1234");
    // A project word that brings in a later token has it replaced too; an earlier one does not.
    EXPECT_EQ(named("{du-an}").fileName(src, 1, date, "{ten}"), "{ten}");
    EXPECT_EQ(named("{ten}").fileName("/x/{so}.jpg", 5, date, "p"), "005");
    // Tokens are case-sensitive.
    EXPECT_EQ(named("{TEN}").fileName(src, 1, date, "p"), "{TEN}");
}

TEST(RecipeFileName, ForbiddenCharactersAndBlanks) {
    const std::string src = "/shoot/a.jpg";
    EXPECT_EQ(named("///").fileName(src, 1, std::nullopt, "p"), "---");
    EXPECT_EQ(named(R"(a/b:c\d?e*f"g<h>i|j)").fileName(src, 1, std::nullopt, "p"),
              "a-b-c-d-e-f-g-h-i-j");
    EXPECT_EQ(named("").fileName(src, 1, std::nullopt, "p"), "a");
    EXPECT_EQ(named("   ").fileName(src, 1, std::nullopt, "p"), "a");
    EXPECT_EQ(named("  {du-an} ").fileName(src, 1, std::nullopt, " "), "a");
    // A missing date vanishes and the separators stay.
    EXPECT_EQ(named("{ngay}_{so}").fileName(src, 1, std::nullopt, "p"), "_001");
    // A project folder name with a slash cannot escape the destination.
    EXPECT_EQ(named("{du-an}").fileName(src, 1, std::nullopt, "../x"), "..-x");
}

TEST(RecipeDefaults, ShippedRecipesAndThePlusButton) {
    const auto d = ExportRecipe::defaults();
    ASSERT_EQ(d.size(), 3u);
    EXPECT_EQ(d[0].name, "Lưu trữ (cỡ gốc)");
    EXPECT_EQ(d[1].options, (ExportOptions{ExportFormat::jpeg, 85, true, 2048}));
    EXPECT_TRUE(d[1].useWatermark);
    EXPECT_FALSE(d[2].enabled);
    EXPECT_EQ(d[2].subfolder, "Zalo");
    EXPECT_EQ(d[2].options.longEdge, 1600);
    EXPECT_EQ(std::set<Uuid>({d[0].id, d[1].id, d[2].id}).size(), 3u);
    EXPECT_NE(ExportRecipe::defaults()[0].id, d[0].id);
    const auto added = ExportRecipe::added();
    EXPECT_EQ(added.name, "Công thức mới");
    EXPECT_EQ(added.subfolder, "Moi");
    EXPECT_EQ(added.options.quality, 92);
    EXPECT_EQ(added.watermark, Watermark{});
}

class RecipeStoreTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() / ("ql-recipes-" + std::to_string(::getpid()));
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        path_ = (dir_ / "ExportRecipes.json").string();
    }
    void TearDown() override { fs::remove_all(dir_); }
    void writeText(const std::string& text) { std::ofstream(path_) << text; }

    fs::path dir_;
    std::string path_;
};

TEST_F(RecipeStoreTest, SavedListComesBackWhole) {
    auto recipes = ExportRecipe::defaults();
    recipes[1].watermark.imagePath = "/logo/giao xu.png";
    recipes[1].watermark.corner = Watermark::Corner::center;
    recipes[2].copyright = "© Giáo xứ";
    recipes.push_back(ExportRecipe::added());
    recipes.back().options.format = ExportFormat::tiff16;
    RecipeStore::save(recipes, path_);
    EXPECT_EQ(RecipeStore::load(path_), recipes);
    // Compact JSON, and no temporary file left beside it.
    std::ifstream in(path_);
    const std::string text((std::istreambuf_iterator<char>(in)), {});
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_NE(text.find("\"format\":\"tiff16\""), std::string::npos);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir_), fs::directory_iterator()), 1);
}

TEST_F(RecipeStoreTest, DamagedFilesGiveTheDefaults) {
    const auto isDefaults = [](const std::vector<ExportRecipe>& r) {
        return r.size() == 3 && r[0].name == "Lưu trữ (cỡ gốc)" && r[2].name == "Zalo / tin nhắn";
    };
    EXPECT_TRUE(isDefaults(RecipeStore::load(path_)));  // missing
    writeText("[]");
    EXPECT_TRUE(isDefaults(RecipeStore::load(path_)));
    writeText("{not json");
    EXPECT_TRUE(isDefaults(RecipeStore::load(path_)));
    // One recipe without a key spoils the whole list, even when the other one is whole.
    auto two = ExportRecipe::defaults();
    two.resize(2);
    auto json = Json::parse(RecipeStore::encode(two));
    json[1].erase("copyright");
    writeText(json.dump());
    EXPECT_TRUE(isDefaults(RecipeStore::load(path_)));
    json = Json::parse(RecipeStore::encode(two));
    json[0]["watermark"].erase("corner");
    writeText(json.dump());
    EXPECT_TRUE(isDefaults(RecipeStore::load(path_)));
    json = Json::parse(RecipeStore::encode(two));
    json[0]["options"]["format"] = "webp";
    writeText(json.dump());
    EXPECT_TRUE(isDefaults(RecipeStore::load(path_)));
    // The damaged file stays until the next save.
    EXPECT_TRUE(fs::exists(path_));
    // imagePath alone may be absent.
    json = Json::parse(RecipeStore::encode(two));
    json[0]["watermark"].erase("imagePath");
    writeText(json.dump());
    EXPECT_EQ(RecipeStore::load(path_), two);
}

TEST_F(RecipeStoreTest, SaveFailureIsSwallowed) {
    const std::string blocked = (dir_ / "file").string();
    std::ofstream(blocked) << "x";
    RecipeStore::save(ExportRecipe::defaults(), blocked + "/ExportRecipes.json");
    EXPECT_FALSE(fs::exists(blocked + "/ExportRecipes.json"));
}

}  // namespace
}  // namespace ql
