// Library thumbnails: the embedded preview first, the size limit, the cache, four reads at once.
#include <gtest/gtest.h>

#include <QtConcurrent/QtConcurrent>
#include <atomic>
#include <chrono>
#include <thread>

#include "imaging/codec/JpegCodec.h"
#include "render/Thumbnails.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Fixtures.h"

namespace ql {
namespace {

using testing::TempDir;

TEST(Thumbnails, RawGivesItsEmbeddedPreviewWithoutDeveloping) {
    TempDir dir;
    testing::DngSpec spec;
    spec.width = 200, spec.height = 100, spec.asShotNeutral = {1, 1, 1};
    // The sensor sees red; the embedded preview is green, so the thumbnail tells which was used.
    spec.previewWidth = 480, spec.previewHeight = 240;
    spec.previewRGB.assign(480 * 240 * 3, 0);
    for (size_t i = 1; i < spec.previewRGB.size(); i += 3)
        spec.previewRGB[i] = 200;
    testing::writeDng(dir.file("shot.dng"), spec, [](int, int) {
        return std::array<float, 3>{0.7f, 0.05f, 0.05f};
    });
    const ThumbPtr thumb = Thumbnails::read(dir.file("shot.dng"));
    ASSERT_TRUE(thumb);
    EXPECT_EQ(thumb->width, 360);
    EXPECT_EQ(thumb->height, 180);
    const uint8_t* p = &thumb->rgb[(90 * 360 + 180) * 3];
    EXPECT_GT(p[1], 150);
    EXPECT_LT(p[0], 40);

    // Without a preview the sensor data is developed instead.
    testing::DngSpec bare = spec;
    bare.previewWidth = bare.previewHeight = 0, bare.previewRGB.clear();
    testing::writeDng(dir.file("bare.dng"), bare, [](int, int) {
        return std::array<float, 3>{0.7f, 0.05f, 0.05f};
    });
    const ThumbPtr developed = Thumbnails::read(dir.file("bare.dng"));
    ASSERT_TRUE(developed);
    EXPECT_GT(developed->rgb[0], 3 * developed->rgb[1]);
}

TEST(Thumbnails, PlainFilesShrinkToTheLimitAndNeverGrow) {
    TempDir dir;
    testing::writeBytes(dir.file("big.jpg"),
                        testing::encodeJpeg(1000, 800, testing::quadrantRGB(1000, 800), 90));
    const ThumbPtr big = Thumbnails::read(dir.file("big.jpg"));
    ASSERT_TRUE(big);
    EXPECT_EQ(big->width, 360);
    EXPECT_EQ(big->height, 288);
    testing::writeBytes(dir.file("small.jpg"),
                        testing::encodeJpeg(200, 100, testing::quadrantRGB(200, 100), 90));
    EXPECT_EQ(Thumbnails::read(dir.file("small.jpg"))->width, 200);
    EXPECT_EQ(Thumbnails::read(dir.file("missing.jpg")), nullptr);
    // 1000 × 333 at 360 / 1000 gives 119.88 rows: truncated, not rounded.
    EXPECT_EQ(Thumbnails::shrink(img::Image(1000, 333))->height, 119);
}

TEST(Thumbnails, CachedAfterTheFirstLoadAndAtMostFourReadsAtOnce) {
    std::atomic<int> running{0}, most{0}, reads{0};
    Thumbnails thumbs([&](const std::string&) {
        const int now = ++running;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        ++reads;
        --running;
        auto t = std::make_shared<Thumb>();
        t->width = t->height = 1;
        t->rgb = {1, 2, 3};
        return ThumbPtr(t);
    });
    std::vector<QFuture<ThumbPtr>> futures;
    for (int i = 0; i < 12; ++i)
        futures.push_back(thumbs.load("photo" + std::to_string(i)));
    for (auto& f : futures)
        EXPECT_TRUE(f.result());
    EXPECT_EQ(most.load(), Thumbnails::kConcurrentReads);
    EXPECT_TRUE(thumbs.cached("photo3"));
    thumbs.load("photo3").waitForFinished();
    EXPECT_EQ(reads.load(), 12) << "a cached thumbnail is not read again";
}

}  // namespace
}  // namespace ql
