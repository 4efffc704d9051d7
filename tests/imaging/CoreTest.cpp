// The image buffer, the parallel loop and the per-pixel convention.
#include <gtest/gtest.h>

#include <cstring>

#include "ImageTesting.h"
#include "imaging/Copy.h"
#include "imaging/ExposureAdjust.h"

namespace ql::img {
namespace {

using testing::identical;
using testing::noise;

TEST(Image, SizesAndPixels) {
    EXPECT_TRUE(Image(0, 5).empty());
    EXPECT_TRUE(Image(-3, 5).empty());
    Image image(3, 2);
    EXPECT_EQ(image.longEdge(), 3);
    EXPECT_EQ(image.at(2, 1), (Pixel{0, 0, 0, 0}));
    image.set(2, 1, {1, 2, 3, 4});
    EXPECT_EQ(image.row(1)[8], 1);
    EXPECT_EQ(Image::filled(2, 2, {0.5f, 0, 0, 1}).at(1, 1), (Pixel{0.5f, 0, 0, 1}));
}

// Large pictures reuse freed memory that holds them without pinning far larger blocks; a block
// handed on keeps its own size, so it can later hold a picture as large as the first again.
TEST(Image, FreedMemoryIsReusedWhereItFits) {
    const float* first;
    {
        const Image big = Image::forOverwrite(1500, 1000);
        first = big.data();
    }
    {
        Image smaller = Image::forOverwrite(1400, 1000);
        EXPECT_EQ(smaller.data(), first);
        std::fill(smaller.data(), smaller.data() + smaller.pixelCount() * 4, 0.5f);
    }
    const Image again = Image::filled(1500, 1000, {0.25f, 0, 0, 1});
    EXPECT_EQ(again.at(1499, 999), (Pixel{0.25f, 0, 0, 1}));
    // A zeroed picture never comes from the pool, whatever it held before.
    const Image zeroed(1500, 1000);
    EXPECT_EQ(zeroed.at(750, 500), (Pixel{0, 0, 0, 0}));
}

TEST(ParallelFor, CoversEveryIndexOnceWhateverTheThreads) {
    for (int threads : {1, 2, 7, 64}) {
        std::vector<std::atomic<int>> hits(101);
        EXPECT_TRUE(parallelFor(0, 101, Execution{threads}, [&](int b, int e) {
            for (int i = b; i < e; ++i)
                hits[size_t(i)]++;
        }));
        for (auto& h : hits)
            EXPECT_EQ(h.load(), 1);
    }
    EXPECT_TRUE(parallelFor(5, 5, {}, [](int, int) { FAIL(); }));
}

TEST(ParallelFor, StopsWhenCancelled) {
    std::atomic<bool> cancel{true};
    int ran = 0;
    EXPECT_FALSE(parallelFor(0, 1000, Execution{1, &cancel}, [&](int, int) { ++ran; }));
    EXPECT_EQ(ran, 0);
    EXPECT_TRUE(copy(noise(8, 8, 1), Execution{2, &cancel}).empty());
}

TEST(Copy, IsDeepAndExact) {
    const Image a = noise(37, 19, 2);
    const Image b = copy(a);
    EXPECT_TRUE(identical(a, b));
    EXPECT_FALSE(b.sharesPixelsWith(a));
}

TEST(Exposure, DoublesPerStopAndKeepsAlpha) {
    const Image a = noise(9, 7, 3);
    EXPECT_TRUE(exposureAdjust(a, {0}).sharesPixelsWith(a));
    EXPECT_TRUE(exposureAdjust(a, {NAN}).sharesPixelsWith(a));
    const Image up = exposureAdjust(a, {1});
    EXPECT_FLOAT_EQ(up.at(4, 3).g, 2 * a.at(4, 3).g);
    EXPECT_EQ(up.at(4, 3).a, a.at(4, 3).a);
    EXPECT_TRUE(identical(exposureAdjust(a, {-0.7f}, {1}), exposureAdjust(a, {-0.7f}, {7})));
    EXPECT_TRUE(exposureAdjust(Image{}, {1}).empty());
}

}  // namespace
}  // namespace ql::img
