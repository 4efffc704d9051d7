// --render from a real file to a real file: formats by extension, the result line, upright
// output with the source's metadata, and failures with status 1.
#include <gtest/gtest.h>

#include <regex>
#include <sstream>

#include "app/Entry.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/Metadata.h"
#include "tests/app/RunCommand.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

using testing::TempDir;

using testing::Outcome;

Outcome render(std::vector<std::string> args) {
    args.insert(args.begin(), {"quillarium", "--render"});
    return testing::runCommand(args);
}

// A 40 × 20 JPEG stored sideways: orientation 6 turns it into 20 × 40.
std::string sidewaysJpeg(const TempDir& dir) {
    const std::vector<uint8_t> jpeg = testing::encodeJpeg(40, 20, testing::quadrantRGB(40, 20), 95);
    testing::writeBytes(dir.file("in.jpg"),
                        testing::withApp1(jpeg, testing::exifWithOrientation(6)));
    return dir.file("in.jpg");
}

TEST(RenderCommand, WritesEachFormatUprightWithTheResultLine) {
    TempDir dir;
    const std::string in = sidewaysJpeg(dir);
    struct Case {
        const char* name;
        img::FileKind kind;
    };
    for (const Case& c :
         {Case{"out.jpg", img::FileKind::jpeg}, Case{"out.PNG", img::FileKind::png},
          Case{"out.tiff", img::FileKind::tiff}, Case{"out.tif", img::FileKind::tiff},
          Case{"out.webp", img::FileKind::jpeg}}) {
        const Outcome r = render({in, dir.file(c.name)});
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(std::regex_match(
            r.out, std::regex(std::string("ok ") + c.name + R"( 20x40 raw=no in \d+\.\d\ds\n)")))
            << r.out;
        const std::vector<uint8_t> bytes = img::readFileBytes(dir.file(c.name));
        const img::ImageHeader h = img::readImageHeader(bytes);
        EXPECT_EQ(h.kind, c.kind) << c.name;
        EXPECT_EQ(h.width, 20) << c.name;
        EXPECT_EQ(img::Metadata::fromBytes(bytes.data(), bytes.size()).orientation(), 1) << c.name;
    }
    // The written pixels are the upright ones: the stored top-left (red) is now top-right.
    const img::Image out = img::decodeImage(img::readFileBytes(dir.file("out.tif")));
    EXPECT_GT(out.at(17, 2).r, 3 * out.at(17, 2).b);
}

TEST(RenderCommand, EmptyAdjustmentsEqualNoneAndRawSaysSo) {
    TempDir dir;
    const std::string in = sidewaysJpeg(dir);
    testing::writeBytes(dir.file("adj.json"), {'{', '}'});
    ASSERT_EQ(render({in, dir.file("a.jpg")}).status, 0);
    ASSERT_EQ(render({in, dir.file("b.jpg"), dir.file("adj.json")}).status, 0);
    EXPECT_EQ(testing::readBytes(dir.file("a.jpg")), testing::readBytes(dir.file("b.jpg")));

    testing::DngSpec spec;
    spec.width = 64, spec.height = 48, spec.iso = 200, spec.exposureTime = 0.004;
    testing::writeDng(dir.file("raw.dng"), spec, [](int, int) {
        return std::array<float, 3>{0.2f, 0.3f, 0.25f};
    });
    const Outcome r = render({dir.file("raw.dng"), dir.file("raw.jpg")});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.rfind("ok raw.jpg 64x48 raw=yes in ", 0), 0u) << r.out;
    const std::vector<uint8_t> bytes = testing::readBytes(dir.file("raw.jpg"));
    const img::Metadata carried = img::Metadata::fromBytes(bytes.data(), bytes.size());
    EXPECT_EQ(carried.integer("Exif.Photo.ISOSpeedRatings"), 200);
}

TEST(RenderCommand, FilesThatDoNotOpenFailWithStatusOne) {
    TempDir dir;
    testing::writeBytes(dir.file("zero.jpg"), {});
    std::vector<uint8_t> cut = testing::encodeJpeg(64, 48, testing::quadrantRGB(64, 48), 90);
    cut.resize(cut.size() * 2 / 3);
    testing::writeBytes(dir.file("cut.jpg"), cut);
    // A PNG whose header claims 100000 × 100000 pixels, and nothing after it.
    testing::writeBytes(
        dir.file("huge.png"),
        {0x89, 'P',  'N',  'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R', 0,
         1,    0x86, 0xA0, 0,   1,    0x86, 0xA0, 8,    2, 0, 0, 0,  0,   0,   0,   0});
    for (const std::string& in :
         {dir.file("missing.jpg"), dir.path().string(), dir.file("zero.jpg"), dir.file("cut.jpg"),
          dir.file("huge.png")}) {
        const Outcome r = render({in, dir.file("out.jpg")});
        EXPECT_EQ(r.status, 1) << in;
        EXPECT_EQ(r.err.rfind("failed: ", 0), 0u) << r.err;
        EXPECT_EQ(r.err.back(), '\n');
    }
    // An output that can't be written fails the same way and leaves nothing behind.
    const Outcome r = render({sidewaysJpeg(dir), dir.file("no/such/folder/out.jpg")});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err.rfind("failed: ", 0), 0u);
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.jpg")));
}

}  // namespace
}  // namespace ql
