// The exporter end to end on real files: size rules, the transparency rule, bit depth, quality,
// metadata carried over, and failures that leave nothing half-written.
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cmath>
#include <csignal>
#include <filesystem>
#include <set>

#include "imaging/LanczosScale.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/Metadata.h"
#include "imaging/codec/PngCodec.h"
#include "imaging/codec/SrgbProfile.h"
#include "render/Exporter.h"
#include "render/ImageWriter.h"
#include "tests/support/ColourDifference.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"
#include "tests/support/Mosaic.h"

namespace ql {
namespace {

namespace fs = std::filesystem;
using testing::TempDir;

img::Image decodeFile(const std::string& path) {
    const auto bytes = testing::readBytes(path);
    return img::decodeImage(bytes);
}

// Left half opaque grey, right half fully transparent.
img::Image halfTransparent(int w, int h) {
    img::Image im(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w / 2; ++x)
            im.set(x, y, {0.2f, 0.2f, 0.2f, 1});
    return im;
}

// A smooth horizontal ramp of grey, opaque.
img::Image ramp(int w, int h) {
    img::Image im(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const float v = float(x) / float(w - 1);
            im.set(x, y, {v, v, v, 1});
        }
    return im;
}

std::set<std::string> filesIn(const fs::path& dir) {
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(dir))
        names.insert(e.path().filename().string());
    return names;
}

class ExporterTest : public ::testing::Test {
  protected:
    std::string source(const img::Image& picture, const std::string& name = "src.png") {
        const std::string path = dir_.file(name);
        img::writePng8(picture, path);
        return path;
    }
    void exportTo(const std::string& src, const std::string& to, const ExportOptions& options,
                  const Adjustments& adjustments = {}, const std::string& copyright = {}) {
        ImageSource s(src, 400);
        Exporter::exportImage(s, adjustments, pipeline_, options, to, std::nullopt, copyright,
                              std::nullopt);
    }

    TempDir dir_;
    Pipeline pipeline_;
};

TEST_F(ExporterTest, SizeIsLimitedButNeverEnlarged) {
    const std::string src = source(ramp(300, 200));
    struct Case {
        bool limit;
        double longEdge;
        int w, h;
    } cases[] = {{false, 100, 300, 200}, {true, 150, 150, 100}, {true, 300, 300, 200},
                 {true, 1000, 300, 200}, {true, 0, 300, 200},   {true, -5, 300, 200}};
    for (const auto& c : cases) {
        const std::string out = dir_.file("out.png");
        exportTo(src, out, {ExportFormat::png, 92, c.limit, c.longEdge});
        const img::Image back = decodeFile(out);
        EXPECT_EQ(back.width(), c.w) << c.limit << " " << c.longEdge;
        EXPECT_EQ(back.height(), c.h) << c.limit << " " << c.longEdge;
    }
}

// A smaller delivery develops a reduced picture (half-size RAW, DCT-scaled JPEG); it must look
// like the full development shrunk to the same size. A RAW's half size bins each 2×2 block of
// sites, which has none of the demosaicing's false colour, so it is held to the scene instead:
// at least as faithful as the full development.
TEST_F(ExporterTest, ReducedDevelopmentLooksLikeTheFullOne) {
    const img::Image scene =
        testing::sampleMosaic(960, 640, {"party_crowd_indoor.jpg", "event_hall_group.jpg"});
    const std::string dng = dir_.file("scene.dng");
    testing::writeDngOfScene(dng, scene, 400);
    const std::string jpeg = dir_.file("scene.jpg");
    img::writeJpeg(scene, jpeg, {95, {}, {}});
    Adjustments edit;
    edit.exposure = 0.3;
    edit.clarity = 40;
    edit.sharpening = 40;
    const ExportOptions limited{ExportFormat::jpeg, 92, true, 300};
    const ExportOptions whole{ExportFormat::jpeg, 92, false, 300};

    ImageSource jpegReduced(jpeg, 400), jpegFull(jpeg, 400);
    const img::Image small = Exporter::render(jpegReduced, edit, pipeline_, limited, {});
    ASSERT_EQ(small.width(), 300);
    ASSERT_EQ(small.height(), 200);
    const auto d = testing::compare(
        small, img::resize(Exporter::render(jpegFull, edit, pipeline_, whole, {}), 300, 200));
    EXPECT_LT(d.mean, 1.0);
    EXPECT_LT(d.p99, 4.0);

    ImageSource rawReduced(dng, 400), rawFull(dng, 400);
    const img::Image rawSmall = Exporter::render(rawReduced, {}, pipeline_, limited, {});
    ASSERT_EQ(rawSmall.width(), 300);
    const img::Image truth = img::resize(scene, 300, 200);
    const auto reduced = testing::compare(rawSmall, truth);
    const img::Image rawWhole =
        img::resize(Exporter::render(rawFull, {}, pipeline_, whole, {}), 300, 200);
    const auto full = testing::compare(rawWhole, truth);
    EXPECT_LT(reduced.mean, full.mean + 0.2);
    EXPECT_LT(reduced.p99, full.p99 + 0.5);
    EXPECT_LT(testing::compare(rawSmall, rawWhole).mean, 2.0);
}

TEST_F(ExporterTest, TransparentBackdropTurnsWhiteOnlyInJpeg) {
    const std::string src = source(halfTransparent(64, 32));
    Adjustments transparent;
    transparent.backdrop = Backdrop{};
    transparent.backdrop->on = true;
    transparent.backdrop->kind = Backdrop::Kind::transparent;

    exportTo(src, dir_.file("t.jpg"), {ExportFormat::jpeg, 95, false, 0}, transparent);
    const img::Image jpeg = decodeFile(dir_.file("t.jpg"));
    EXPECT_NEAR(jpeg.at(60, 16).r, 1.0f, 0.02f);
    EXPECT_NEAR(jpeg.at(4, 16).r, 0.2f, 0.02f);

    for (const char* name : {"t.png", "t.tif"}) {
        exportTo(src, dir_.file(name),
                 {std::string(name).ends_with("png") ? ExportFormat::png : ExportFormat::tiff16, 95,
                  false, 0},
                 transparent);
        const img::Image back = decodeFile(dir_.file(name));
        EXPECT_EQ(back.at(60, 16).a, 0.0f) << name;
        EXPECT_EQ(back.at(4, 16).a, 1.0f) << name;
    }
    // Without the backdrop edit a JPEG simply loses its alpha: the rule is what makes it white.
    exportTo(src, dir_.file("plain.jpg"), {ExportFormat::jpeg, 95, false, 0});
    EXPECT_LT(decodeFile(dir_.file("plain.jpg")).at(60, 16).r, 0.05f);
}

TEST_F(ExporterTest, Tiff16KeepsMoreThan256Levels) {
    const std::string src = dir_.file("ramp.tif");
    // A 16-bit source, so that the levels come from the export and not from the file.
    writeImage(ramp(2000, 4), src, ExportFormat::tiff16, 92, img::Metadata{});
    exportTo(src, dir_.file("out.tif"), {ExportFormat::tiff16, 92, false, 0});
    const img::Image back = decodeFile(dir_.file("out.tif"));
    std::set<float> levels;
    for (int x = 0; x < back.width(); ++x)
        levels.insert(back.at(x, 2).r);
    EXPECT_GT(levels.size(), 1000u);
    exportTo(src, dir_.file("out.png"), {ExportFormat::png, 92, false, 0});
    const img::Image png = decodeFile(dir_.file("out.png"));
    levels.clear();
    for (int x = 0; x < png.width(); ++x)
        levels.insert(png.at(x, 2).r);
    EXPECT_LE(levels.size(), 256u);
}

TEST_F(ExporterTest, QualityIsTheJpegScale) {
    img::Image noisy(400, 300);
    uint32_t seed = 7;
    for (int y = 0; y < 300; ++y)
        for (int x = 0; x < 400; ++x) {
            seed = seed * 1664525u + 1013904223u;
            const float v = float(seed >> 8) / float(1 << 24);
            noisy.set(x, y, {v, v * 0.5f, 1 - v, 1});
        }
    const std::string src = source(noisy);
    std::vector<uintmax_t> sizes;
    for (double q : {0.0, 50.0, 92.0, 100.0, 1e9}) {
        const std::string out = dir_.file("q.jpg");
        exportTo(src, out, {ExportFormat::jpeg, q, false, 0});
        sizes.push_back(fs::file_size(out));
        EXPECT_EQ(decodeFile(out).width(), 400);
    }
    EXPECT_LT(sizes[0], sizes[1]);
    EXPECT_LT(sizes[1], sizes[2]);
    EXPECT_LT(sizes[2], sizes[3]);
    EXPECT_EQ(sizes[3], sizes[4]);  // clamped to 100
}

TEST_F(ExporterTest, UprightPixelsAndCarriedMetadata) {
    // A JPEG stored sideways with an orientation tag comes out upright, tagged 1.
    const std::vector<uint8_t> rgb = testing::quadrantRGB(40, 20);
    const std::string src = dir_.file("sideways.jpg");
    testing::writeBytes(src, testing::withApp1(testing::encodeJpeg(40, 20, rgb, 95),
                                               testing::exifWithOrientation(6)));
    const std::string out = dir_.file("out.jpg");
    exportTo(src, out, {ExportFormat::jpeg, 92, false, 0}, {}, "  © Giáo xứ Tân Định  ");
    const img::Image back = decodeFile(out);
    EXPECT_EQ(back.width(), 20);
    EXPECT_EQ(back.height(), 40);
    const img::Metadata meta = img::Metadata::read(out);
    EXPECT_EQ(meta.orientation(), 1);
    EXPECT_EQ(meta.text("Exif.Image.Orientation"), "1");
    EXPECT_EQ(meta.text("Exif.Image.Copyright"), "© Giáo xứ Tân Định");
    EXPECT_EQ(meta.text("Iptc.Application2.Copyright"), "© Giáo xứ Tân Định");
    EXPECT_EQ(meta.text("Exif.Image.Software"), "Quillarium");
}

// An untouched JPEG delivered whole skips the float picture; what it writes must be exactly what
// the whole pipeline writes, turned or not, and files whose colours need converting must still
// be converted.
TEST_F(ExporterTest, UntouchedJpegIsWrittenAsThePipelineWouldWriteIt) {
    const img::Image scene = testing::sampleMosaic(300, 200, {"event_hall_group.jpg"});
    const auto tagged = [&](const std::string& name, int orientation, std::vector<uint8_t> icc) {
        const std::vector<uint8_t> jpeg = img::encodeJpeg(scene, {93, {}, std::move(icc)});
        const std::string path = dir_.file(name);
        testing::writeBytes(path,
                            orientation > 1
                                ? testing::withApp1(jpeg, testing::exifWithOrientation(orientation))
                                : jpeg);
        return path;
    };
    struct Case {
        std::string file;
        bool direct;
    } cases[] = {{tagged("plain.jpg", 1, {}), true},
                 {tagged("turned.jpg", 6, {}), true},
                 {tagged("upside.jpg", 3, {}), true},
                 {tagged("srgb.jpg", 1, img::srgbIccProfile()), true},
                 {tagged("p3.jpg", 1, testing::displayP3Profile()), false},
                 {source(scene, "plain.png"), false}};
    const ExportOptions whole{ExportFormat::jpeg, 92, false, 0};
    for (const auto& c : cases) {
        ImageSource direct(c.file, 400);
        EXPECT_EQ(direct.unchangedJpeg(jpegOptions(92)).has_value(), c.direct) << c.file;
        const std::string fast = dir_.file("fast.jpg"), slow = dir_.file("slow.jpg");
        Exporter::exportImage(direct, {}, pipeline_, whole, fast, std::nullopt, {}, std::nullopt);
        ImageSource piped(c.file, 400);
        writeImage(Exporter::render(piped, {}, pipeline_, whole, {}), slow, ExportFormat::jpeg, 92,
                   {});
        const img::Image a = decodeFile(fast), b = decodeFile(slow);
        ASSERT_EQ(a.width(), b.width()) << c.file;
        ASSERT_EQ(a.height(), b.height()) << c.file;
        EXPECT_EQ(testing::compare(a, b).max, 0.0) << c.file;
    }
}

TEST_F(ExporterTest, FailuresLeaveNothingHalfWritten) {
    const std::string src = source(ramp(600, 400));
    const auto code = [&](const std::string& to, const img::Execution& exec = {}) {
        try {
            ImageSource s(src, 400);
            Exporter::exportImage(s, {}, pipeline_, {ExportFormat::jpeg, 92, false, 0}, to,
                                  std::nullopt, {}, std::nullopt, exec);
        } catch (const ExportError& e) {
            EXPECT_NE(std::string(e.what()).find(to), std::string::npos) << e.what();
            return int(e.code());
        }
        return -1;
    };
    const int writeUnknown = int(ExportError::Code::fileWriteUnknown);
    EXPECT_EQ(code(dir_.file("missing/out.jpg")), writeUnknown);
    testing::writeBytes(dir_.file("afile"), {1, 2, 3});
    EXPECT_EQ(code(dir_.file("afile/out.jpg")), writeUnknown);

    // A cancelled export writes nothing.
    std::atomic<bool> cancel{true};
    EXPECT_EQ(code(dir_.file("cancelled.jpg"), {0, &cancel}), writeUnknown);
    EXPECT_FALSE(fs::exists(dir_.file("cancelled.jpg")));

    // A disk that fills up mid-file: the old file at the target stays whole, no temporary is
    // left behind.
    const std::string target = dir_.file("kept.jpg");
    testing::writeBytes(target, {'o', 'l', 'd'});
    const auto before = filesIn(dir_.path());
    rlimit old{};
    getrlimit(RLIMIT_FSIZE, &old);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit tiny = old;
    tiny.rlim_cur = 4096;
    setrlimit(RLIMIT_FSIZE, &tiny);
    const int full = code(target);
    setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, previous);
    EXPECT_EQ(full, writeUnknown);
    EXPECT_EQ(testing::readBytes(target), (std::vector<uint8_t>{'o', 'l', 'd'}));
    EXPECT_EQ(filesIn(dir_.path()), before);

    // And the same export with room succeeds over the old file.
    EXPECT_EQ(code(target), -1);
    EXPECT_EQ(decodeFile(target).width(), 600);
}

}  // namespace
}  // namespace ql
