// --auto and --expert on real photos: their lines, their exports, and a shoot with bad files.
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>

#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "tests/app/RunCommand.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

using testing::Outcome;
using testing::TempDir;

const std::string samples = QL_SAMPLES_DIR;

int longEdgeOf(const std::string& path) {
    const img::ImageHeader h = img::readImageHeader(img::readFileBytes(path));
    return std::max(h.width, h.height);
}

TEST(AutoCommand, PrintsItsTwoLinesAndExportsSmall) {
    TempDir dir;
    const Outcome r = testing::runCommand(
        {"q", "--auto", samples + "/three_men_night_flash.jpg", dir.file("a.jpg")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::regex_search(
        r.out, std::regex(R"(^asShot 0K/0 measured-neutral -?\d+K/-?\d+ p50 \d\.\d\d p99 \d\.\d\d )"
                          R"(clip \d\.\d{3}\nthree_men_night_flash\.jpg .*Độ rực màu \+\d+)")))
        << r.out;
    EXPECT_EQ(longEdgeOf(dir.file("a.jpg")), 700);

    // An unknown style is no style; a known one shows in the change list.
    const Outcome unknown = testing::runCommand(
        {"q", "--auto", samples + "/three_men_night_flash.jpg", dir.file("b.jpg"), "NoSuchStyle"});
    EXPECT_EQ(unknown.out, r.out);
    const Outcome mono = testing::runCommand(
        {"q", "--auto", samples + "/three_men_night_flash.jpg", dir.file("c.jpg"), "mono"});
    EXPECT_NE(mono.out.find("Độ bão hòa -100"), std::string::npos) << mono.out;
}

TEST(AutoCommand, ReportWhenAskedAndSilentFailures) {
    TempDir dir;
    ::setenv("QL_REPORT", "", 1);
    const Outcome r =
        testing::runCommand({"q", "--auto", samples + "/event_hall_group.jpg", dir.file("a.jpg")});
    ::unsetenv("QL_REPORT");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(
        std::regex_search(r.out, std::regex(R"(^score \d+ — .+  sharp=\d+\.\d{3} faces=\d+\n)")))
        << r.out;
    EXPECT_TRUE(std::regex_search(r.out, std::regex(R"(\n  \[(ok|!|!!)\] Độ sáng chung: )")));
    EXPECT_TRUE(std::regex_search(
        r.out, std::regex(R"(\n  \[ok\] Thông tin trong file: .*\n  colours: \S)")))
        << r.out;

    testing::writeBytes(dir.file("broken.jpg"), {0xFF, 0xD8, 0xFF, 0xE0, 0, 3});
    const Outcome broken =
        testing::runCommand({"q", "--auto", dir.file("broken.jpg"), dir.file("x.jpg")});
    EXPECT_EQ(broken.status, 1);
    EXPECT_EQ(broken.out + broken.err, "");
    // An output that can't be written: status 1 after the two lines.
    const Outcome unwritable = testing::runCommand(
        {"q", "--auto", samples + "/sample_16bit.tif", dir.file("no/such/folder/x.jpg")});
    EXPECT_EQ(unwritable.status, 1);
}

TEST(ExpertCommand, EditsAShootAndSkipsWhatItCannotRead) {
    TempDir dir;
    const std::string out = dir.file("out");
    std::filesystem::create_directory(out);
    testing::writeBytes(dir.file("broken.jpg"), {0xFF, 0xD8, 0xFF});
    const Outcome r = testing::runCommand(
        {"q", "--expert", out, samples + "/three_men_night_flash.jpg", dir.file("broken.jpg"),
         samples + "/colorchart_canon550d.dng", dir.file("missing.png")});
    ASSERT_EQ(r.status, 0) << r.err;
    const std::regex line(
        R"((\S+) \[lean -?\d+\.\d conf \d\.\d sky \d\.\d\d\]: Cảnh [^;]+; .*\.\n)");
    std::vector<std::string> names;
    for (std::sregex_iterator it(r.out.begin(), r.out.end(), line), end; it != end; ++it)
        names.push_back((*it)[1]);
    ASSERT_EQ(names.size(), 2u) << r.out;
    for (const std::string stem : {"three_men_night_flash", "colorchart_canon550d"})
        EXPECT_EQ(longEdgeOf(out + "/" + stem + ".jpg"), 700) << stem;
    // Every photo gets its sharpening.
    EXPECT_NE(r.out.find("làm nét"), std::string::npos) << r.out;
}

}  // namespace
}  // namespace ql
