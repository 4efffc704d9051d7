// Damaged files of every format reach ImageSource: each one opens or is refused with the
// image source's error, and nothing crashes, hangs or allocates without bound.
#include <gtest/gtest.h>

#include <random>

#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/PngCodec.h"
#include "imaging/codec/TiffCodec.h"
#include "render/ImageSource.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"
#include "tests/support/HeifWriter.h"

namespace ql {
namespace {

using testing::TempDir;

// Flipped bits, overwritten runs, cuts and zeroed spans: the damage a bad card or a broken
// transfer does.
std::vector<uint8_t> mutated(const std::vector<uint8_t>& file, std::mt19937& rng) {
    std::vector<uint8_t> m = file;
    std::uniform_int_distribution<size_t> at(0, m.size() - 1);
    switch (rng() % 4) {
        case 0:
            for (int i = 0, n = 1 + int(rng() % 8); i < n; ++i)
                m[at(rng)] ^= uint8_t(1u << (rng() % 8));
            break;
        case 1: {
            const size_t start = at(rng) % std::min<size_t>(m.size(), 512);  // headers live here
            for (size_t i = start; i < std::min(m.size(), start + 1 + rng() % 16); ++i)
                m[i] = uint8_t(rng());
            break;
        }
        case 2:
            m.resize(at(rng));
            break;
        default: {
            const size_t start = at(rng);
            std::fill(m.begin() + long(start), m.begin() + long(std::min(m.size(), start + 64)),
                      0xFF);
            break;
        }
    }
    return m;
}

void survive(const std::string& path) {
    try {
        ImageSource source(path, 64);
        source.previewBase(Adjustments{});
        std::string error;
        const img::Image full = source.fullBase(Adjustments{}, &error);
        EXPECT_TRUE(!full.empty() || !error.empty()) << path;
        EXPECT_LE(full.pixelCount(), size_t(4096) * 4096) << path;
        // The direct path of an untouched export decodes on a helper thread: it must give up
        // as cleanly.
        const auto direct = source.unchangedJpeg({});
        EXPECT_TRUE(!direct || !direct->empty()) << path;
    } catch (const ImageSourceError&) {
    }
}

TEST(DamagedFiles, HundredsOfMutationsOfEachFormat) {
    TempDir dir;
    const std::vector<uint8_t> rgb = testing::quadrantRGB(48, 32);
    img::Image image(48, 32);
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 48; ++x) {
            const uint8_t* p = &rgb[(size_t(y) * 48 + size_t(x)) * 3];
            image.set(x, y, {p[0] / 255.0f, p[1] / 255.0f, p[2] / 255.0f, 1});
        }
    img::writePng8(image, dir.file("seed.png"));
    img::writeTiff16(image, dir.file("seed.tif"));
    testing::DngSpec dng;
    dng.width = 48, dng.height = 32, dng.iso = 400, dng.previewWidth = 48, dng.previewHeight = 32;
    dng.previewRGB = rgb;
    struct Seed {
        const char* extension;
        std::vector<uint8_t> bytes;
    };
    const std::vector<Seed> seeds = {{"jpg", testing::encodeJpeg(48, 32, rgb, 90)},
                                     {"png", testing::readBytes(dir.file("seed.png"))},
                                     {"tif", testing::readBytes(dir.file("seed.tif"))},
                                     {"heic", testing::encodeHeic(48, 32, rgb)},
                                     {"dng", testing::dngBytes(dng, [](int x, int) {
                                          return std::array<float, 3>{x * 0.02f, 0.3f, 0.2f};
                                      })}};
    std::mt19937 rng(20261121);
    for (const Seed& seed : seeds) {
        const std::string original = dir.file(std::string("original.") + seed.extension);
        testing::writeBytes(original, seed.bytes);
        ImageSource intact(original, 64);  // the seed itself must open
        EXPECT_FALSE(intact.fullBase(Adjustments{}).empty()) << seed.extension;
        for (int i = 0; i < 250; ++i) {
            const std::string path = dir.file(std::string("m.") + seed.extension);
            testing::writeBytes(path, mutated(seed.bytes, rng));
            survive(path);
        }
    }
}

}  // namespace
}  // namespace ql
