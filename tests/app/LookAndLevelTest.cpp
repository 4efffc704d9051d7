// --horizon and --camera-look end to end: their output lines, statuses and files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <regex>
#include <sstream>

#include "app/Entry.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/PngCodec.h"
#include "tests/app/RunCommand.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"
#include "tests/support/Mosaic.h"

namespace ql {
namespace {

using testing::TempDir;

using testing::Outcome;

Outcome run(std::vector<std::string> args) {
    args.insert(args.begin(), "quillarium");
    return testing::runCommand(args);
}

// A level horizon: bright textured sky over dark textured ground, a few posts standing up.
std::string levelScene(const TempDir& dir) {
    img::Image im(600, 400);
    for (int y = 0; y < 400; ++y)
        for (int x = 0; x < 600; ++x) {
            const float texture = 0.04f * std::sin(x * 0.9f + y * 0.3f);
            float v = y < 180 ? 0.75f + texture : 0.15f + texture;
            if (y >= 180 && y < 300 && x % 150 > 140) v = 0.8f;
            im.set(x, y, {v, v, v, 1});
        }
    const std::string path = dir.file("level.png");
    img::writePng8(im, path);
    return path;
}

TEST(HorizonCommand, SuggestsTheTurnBack) {
    TempDir dir;
    const std::string scene = levelScene(dir);
    const Outcome tilted = run({"--horizon", scene, "4"});
    EXPECT_EQ(tilted.status, 0);
    std::smatch m;
    ASSERT_TRUE(std::regex_match(tilted.out, m, std::regex("tilted 4 -> suggested (-?[0-9.]+)\n")))
        << tilted.out;
    EXPECT_NEAR(std::stod(m[1]), -4, 0.3);

    const Outcome unparsed = run({"--horizon", scene, "steep"});
    EXPECT_EQ(unparsed.status, 0);
    EXPECT_EQ(unparsed.out.rfind("tilted 0 -> suggested ", 0), 0u) << unparsed.out;

    const Outcome missing = run({"--horizon", dir.file("none.png"), "2"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_EQ(missing.err.rfind("fatal: ", 0), 0u) << missing.err;
}

TEST(CameraLookCommand, LearnsTheEmbeddedLookOrSaysWhy) {
    TempDir dir;
    // The camera's JPEG: the scene with warmer, punchier colours than the plain rendering.
    const img::Image scene = testing::sampleMosaic(480, 320, {"party_crowd_indoor.jpg"});
    testing::DngSpec spec = testing::apscCameraSpec(480, 320);
    spec.previewWidth = 480;
    spec.previewHeight = 320;
    for (int y = 0; y < 320; ++y)
        for (int x = 0; x < 480; ++x) {
            const img::Pixel p = scene.at(x, y);
            for (float c : {p.r * 1.15f, p.g, p.b * 0.85f})
                spec.previewRGB.push_back(
                    uint8_t(std::lround(255 * std::pow(std::clamp(c, 0.0f, 1.0f), 1 / 2.0f))));
        }
    const std::string raw = dir.file("look.dng");
    testing::writeDng(raw, spec, [&](int x, int y) {
        const img::Pixel p = scene.at(x, y);
        return std::array<float, 3>{p.r * 0.5f, p.g * 0.9f, p.b * 0.7f};
    });
    const Outcome fit = run({"--camera-look", raw, dir.file("plain.jpg"), dir.file("looked.jpg"),
                             dir.file("camera.jpg")});
    EXPECT_EQ(fit.status, 0) << fit.out << fit.err;
    std::smatch m;
    ASSERT_TRUE(std::regex_match(
        fit.out, m,
        std::regex("fit in [0-9]+\\.[0-9]{2}s, colour difference ([0-9.]+) -> ([0-9.]+)\n")))
        << fit.out;
    EXPECT_LT(std::stod(m[2]), 0.5 * std::stod(m[1]));
    for (const char* name : {"plain.jpg", "looked.jpg", "camera.jpg"})
        EXPECT_EQ(img::decodeImage(testing::readBytes(dir.file(name))).width(), 480) << name;

    spec.previewWidth = spec.previewHeight = 0;
    spec.previewRGB.clear();
    testing::writeDng(raw, spec, [](int, int) { return std::array<float, 3>{0.3f, 0.3f, 0.3f}; });
    const Outcome none = run({"--camera-look", raw, dir.file("p.jpg"), dir.file("l.jpg")});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "no embedded JPEG\n");
}

}  // namespace
}  // namespace ql
