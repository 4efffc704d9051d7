#include "CopyBaseline.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "imaging/Copy.h"

namespace ql::bench {

double copySeconds(const img::Image& image) {
    double best = 1e9;
    for (int i = 0; i < 9; ++i) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(img::copy(image).data());
        best = std::min(
            best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

void reportCopyPasses(benchmark::State& state, double secondsPerIteration, double copy) {
    state.counters["copy_passes"] = secondsPerIteration / copy;
    state.counters["copy_ms"] = copy * 1e3;
}

img::Image previewImage() {
    img::Image image(2400, 1600);
    for (int y = 0; y < image.height(); ++y) {
        float* p = image.row(y);
        for (int x = 0; x < image.width(); ++x, p += 4) {
            const float smooth = 0.5f + 0.4f * std::sin(x * 0.003f) * std::cos(y * 0.004f);
            const float detail = 0.05f * float(((x * 7919 + y * 104729) >> 3) % 17) / 17.0f;
            p[0] = smooth + detail;
            p[1] = smooth * 0.8f + detail;
            p[2] = smooth * 0.6f + detail;
            p[3] = 1;
        }
    }
    return image;
}

}  // namespace ql::bench
