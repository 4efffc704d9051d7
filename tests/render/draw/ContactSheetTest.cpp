// The PDF contact sheet: its pages, their size, the pictures in it, and failing cleanly.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "imaging/codec/PngCodec.h"
#include "render/ContactSheet.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

using img::Image;

std::string readText(const std::string& path) {
    const std::vector<uint8_t> bytes = testing::readBytes(path);
    return std::string(bytes.begin(), bytes.end());
}

int count(const std::string& text, const std::string& pattern) {
    const std::regex re(pattern);
    return int(std::distance(std::sregex_iterator(text.begin(), text.end(), re), {}));
}

// Page objects, told from the page tree ("/Pages") that holds them.
int pages(const std::string& pdf) {
    return count(pdf, R"(/Type\s*/Page(?![a-zA-Z]))");
}
int images(const std::string& pdf) {
    return count(pdf, R"(/Subtype\s*/Image)");
}

struct Sheet {
    std::vector<std::string> names;
    std::vector<Image> images;  // distinct, so the writer cannot share one image object
    std::vector<int> ratings;
    explicit Sheet(int n) {
        for (int i = 0; i < n; ++i) {
            names.push_back("IMG_" + std::to_string(1000 + i) + ".jpg");
            images.push_back(Image::filled(60 + i, 40, {0.02f * i, 0.3f, 0.5f, 1}));
            ratings.push_back(i % 6);
        }
    }
};

TEST(ContactSheet, TitlePageThenTwelvePicturesAPage) {
    testing::TempDir dir;
    for (const auto& [pictures, expected] : {std::pair{0, 1}, {1, 2}, {12, 2}, {13, 3}, {25, 4}}) {
        SCOPED_TRACE(pictures);
        const Sheet s(pictures);
        const std::string path = dir.file("sheet.pdf");  // each replaces the one before
        std::string error;
        ASSERT_TRUE(ContactSheet::write(path, "Lễ cưới Minh & Thu", s.names, s.images, s.ratings,
                                        std::nullopt, &error))
            << error;
        const std::string pdf = readText(path);
        EXPECT_EQ(pdf.rfind("%PDF-", 0), 0u);
        EXPECT_NE(pdf.find("%%EOF", pdf.size() - 8), std::string::npos);
        EXPECT_EQ(pages(pdf), expected);
        EXPECT_EQ(count(pdf, R"(/Count\s+)" + std::to_string(expected) + R"(\b)"), 1);
        EXPECT_EQ(count(pdf, R"(/MediaBox\s*\[\s*0\s+0\s+842(\.0+)?\s+595(\.0+)?\s*\])"), expected);
        EXPECT_EQ(images(pdf), pictures);
    }
}

TEST(ContactSheet, MissingPicturesAndLogo) {
    testing::TempDir dir;
    Sheet s(5);
    s.images[1] = Image();  // could not be rendered: an empty cell, still captioned
    s.images[3] = Image();
    s.ratings.resize(2);  // shorter lists are read where present
    s.names.pop_back();
    std::string error;
    ASSERT_TRUE(ContactSheet::write(dir.file("gaps.pdf"), "Gaps", s.names, s.images, s.ratings,
                                    dir.file("no-logo.png"), &error))
        << error;
    EXPECT_EQ(pages(readText(dir.file("gaps.pdf"))), 2);
    EXPECT_EQ(images(readText(dir.file("gaps.pdf"))), 3);

    // A logo that loads is drawn on the title page: the picture and its alpha mask.
    img::writePng8(Image::filled(300, 100, {0.4f, 0.05f, 0.05f, 0.5f}), dir.file("logo.png"));
    ASSERT_TRUE(
        ContactSheet::write(dir.file("logo.pdf"), "Logo", {}, {}, {}, dir.file("logo.png"), &error))
        << error;
    EXPECT_EQ(pages(readText(dir.file("logo.pdf"))), 1);
    EXPECT_EQ(images(readText(dir.file("logo.pdf"))), 2);
}

TEST(ContactSheet, FailureLeavesNothingBehind) {
    testing::TempDir dir;
    const Sheet s(3);
    std::string error;
    EXPECT_FALSE(ContactSheet::write(dir.file("no/such/folder/sheet.pdf"), "x", s.names, s.images,
                                     s.ratings, std::nullopt, &error));
    EXPECT_FALSE(error.empty());

    // A folder in the way: no temporary file may stay beside it.
    std::filesystem::create_directory(dir.file("taken.pdf"));
    testing::writeBytes(dir.file("taken.pdf/inside"), {1});
    error.clear();
    EXPECT_FALSE(ContactSheet::write(dir.file("taken.pdf"), "x", s.names, s.images, s.ratings,
                                     std::nullopt, &error));
    EXPECT_FALSE(error.empty());
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
        left.push_back(entry.path().filename().string());
    EXPECT_EQ(left, std::vector<std::string>{"taken.pdf"});
}

}  // namespace
}  // namespace ql
