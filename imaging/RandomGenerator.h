// Random generator: an image of independent uniform noise, the raw material of grain and
// dithering.
#pragma once

#include <cstdint>

#include "Execution.h"
#include "Image.h"

namespace ql::img {

struct RandomParams {
    // The size of the image; a size below 1 gives an empty image.
    int width = 0, height = 0;
    // Selects the pattern; any value.
    uint32_t seed = 0;
};

/// Every channel, alpha included, uniform in [0, 1) with 24 random bits, a pure function of
/// (x, y, channel, seed) through an integer hash, so any pixel can be recomputed alone and the
/// result never depends on the threads. Not premultiplied in any meaningful sense: colour may
/// exceed alpha.
Image randomGenerator(const RandomParams& p, const Execution& exec = {});

/// The generator's values one place at a time, for an operation that needs a channel of them
/// without making the image: channel c of randomGenerator's pixel (x, y) for `seed` is
/// RandomField(seed).at(x, y, c), bit for bit.
class RandomField {
  public:
    explicit RandomField(uint32_t seed) : seedKey_(mix(uint64_t(seed) * kGolden + kGolden)) {}
    float at(int x, int y, int channel) const { return channelOf(placeKey(x, y), channel); }

  private:
    friend Image randomGenerator(const RandomParams&, const Execution&);
    static constexpr uint64_t kGolden = 0x9E3779B97F4A7C15ull;
    // A 64-bit finaliser with full avalanche: every input bit flips each output bit with
    // probability about one half, so neighbouring keys give unrelated values.
    static uint64_t mix(uint64_t z) {
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    uint64_t placeKey(int x, int y) const {
        return mix((uint64_t(uint32_t(y)) << 32 | uint32_t(x)) ^ seedKey_);
    }
    static float channelOf(uint64_t key, int channel) {
        return float(mix(key + uint64_t(channel + 1) * kGolden) >> 40) * (1.0f / (1 << 24));
    }
    uint64_t seedKey_;
};

}  // namespace ql::img
