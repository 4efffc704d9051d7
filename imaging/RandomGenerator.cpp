#include "RandomGenerator.h"

namespace ql::img {

Image randomGenerator(const RandomParams& p, const Execution& exec) {
    Image out = Image::forOverwrite(p.width, p.height);
    if (out.empty()) return out;
    const RandomField field(p.seed);
    // No input to map, so the rows are spread with the parallel loop itself.
    const bool done = parallelFor(0, p.height, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* o = out.row(y);
            for (int x = 0; x < p.width; ++x, o += 4) {
                const uint64_t key = field.placeKey(x, y);
                for (int c = 0; c < 4; ++c)
                    o[c] = RandomField::channelOf(key, c);
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace ql::img
