#include "RandomGenerator.h"

namespace ql::img {

namespace {

constexpr uint64_t kGolden = 0x9E3779B97F4A7C15ull;

// A 64-bit finaliser with full avalanche: every input bit flips each output bit with
// probability about one half, so neighbouring keys give unrelated values.
uint64_t mix(uint64_t z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

float unit(uint64_t h) {
    return float(h >> 40) * (1.0f / (1 << 24));
}

}  // namespace

Image randomGenerator(const RandomParams& p, const Execution& exec) {
    Image out = Image::forOverwrite(p.width, p.height);
    if (out.empty()) return out;
    const uint64_t seedKey = mix(uint64_t(p.seed) * kGolden + kGolden);
    // No input to map, so the rows are spread with the parallel loop itself.
    const bool done = parallelFor(0, p.height, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* o = out.row(y);
            for (int x = 0; x < p.width; ++x, o += 4) {
                const uint64_t key = mix((uint64_t(uint32_t(y)) << 32 | uint32_t(x)) ^ seedKey);
                for (int c = 0; c < 4; ++c)
                    o[c] = unit(mix(key + uint64_t(c + 1) * kGolden));
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
