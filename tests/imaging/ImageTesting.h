// Small synthetic images and comparisons for the image operation tests.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql::img::testing {

/// An image whose pixel (x, y) is f(x, y).
inline Image make(int w, int h, const std::function<Pixel(int x, int y)>& f) {
    Image image(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image.set(x, y, f(x, y));
    return image;
}

/// Opaque noise in [lo, hi), the same for the same seed.
inline Image noise(int w, int h, unsigned seed, float lo = 0, float hi = 1) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    return make(w, h, [&](int, int) { return Pixel{d(rng), d(rng), d(rng), 1}; });
}

/// The largest difference of any channel of any pixel; infinity for different sizes.
inline float maxDifference(const Image& a, const Image& b) {
    if (a.width() != b.width() || a.height() != b.height()) return INFINITY;
    float worst = 0;
    for (size_t i = 0, n = a.pixelCount() * 4; i < n; ++i)
        worst = std::max(worst, std::abs(a.data()[i] - b.data()[i]));
    return worst;
}

/// True when every float is bit-identical.
inline bool identical(const Image& a, const Image& b) {
    if (a.width() != b.width() || a.height() != b.height()) return false;
    return std::equal(a.data(), a.data() + a.pixelCount() * 4, b.data(),
                      [](float x, float y) { return std::memcmp(&x, &y, sizeof x) == 0; });
}

/// The mean of one channel (0 to 3).
inline double mean(const Image& image, int channel) {
    double sum = 0;
    for (size_t i = 0, n = image.pixelCount(); i < n; ++i)
        sum += image.data()[i * 4 + channel];
    return sum / double(image.pixelCount());
}

/// True when the operation gives a picture, bit-identical on 1, 2 and 7 threads.
inline bool sameForAnyThreads(const std::function<Image(const Execution&)>& op) {
    const Image one = op(Execution{1});
    return !one.empty() && identical(one, op(Execution{2})) && identical(one, op(Execution{7}));
}

/// The operation gives bit-identical pixels on 1, 2 and 7 threads, and nothing when cancelled.
inline void expectThreadIndependent(const std::function<Image(const Execution&)>& op) {
    EXPECT_TRUE(sameForAnyThreads(op));
    const std::atomic<bool> cancel{true};
    EXPECT_TRUE(op(Execution{2, &cancel}).empty());
}

}  // namespace ql::img::testing
