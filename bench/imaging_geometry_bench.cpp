// Resampling: a full-size decode, and a half-size RAW development, shrunk to the preview.
#include <chrono>

#include "CopyBaseline.h"
#include "imaging/LanczosScale.h"

namespace {

using ql::img::Image;

// `big` shrunk to 2400 × 1600, in copy passes of the output.
void shrinkToProxy(benchmark::State& state, const Image& big) {
    const double copy = ql::bench::copySeconds(Image(2400, 1600));
    double total = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(ql::img::resize(big, 2400, 1600).data());
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    ql::bench::reportCopyPasses(state, total / double(state.iterations()), copy);
}

void BM_LanczosShrink6000To2400(benchmark::State& state) {
    Image big(6000, 4000);
    {
        const Image tile = ql::bench::previewImage();
        for (int y = 0; y < big.height(); ++y)
            std::copy_n(tile.row(y % 1600), 2400 * 4, big.row(y)),
                std::copy_n(tile.row(y % 1600), 2400 * 4, big.row(y) + 2400 * 4),
                std::copy_n(tile.row(y % 1600), 1200 * 4, big.row(y) + 4800 * 4);
    }
    shrinkToProxy(state, big);
}
BENCHMARK(BM_LanczosShrink6000To2400)->Unit(benchmark::kMillisecond)->UseRealTime();

// A half-size RAW development (3000 × 2000) to the 2400-pixel proxy: a shrink by 1.25.
void BM_LanczosShrink3000To2400(benchmark::State& state) {
    const Image big = ql::img::resize(ql::bench::previewImage(), 3000, 2000);
    shrinkToProxy(state, big);
}
BENCHMARK(BM_LanczosShrink3000To2400)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
