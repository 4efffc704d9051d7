// The level finder on a real photo's 2400 × 1600 proxy and on the full 24-megapixel picture,
// each also in copy passes over the same picture.
#include <chrono>

#include "CopyBaseline.h"
#include "imaging/LanczosScale.h"
#include "render/Straighten.h"
#include "tests/support/Mosaic.h"

namespace {

using namespace ql;

// Photos of the sample shoot at their native detail, tiled to a 24-megapixel frame.
img::Image mosaic() {
    return testing::sampleMosaic(6000, 4000,
                                 {"party_crowd_indoor.jpg", "three_men_night_flash.jpg",
                                  "event_hall_group.jpg", "iphone7.heic"});
}

void measure(benchmark::State& state, const img::Image& picture) {
    const double copy = bench::copySeconds(picture);
    double total = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const auto found = Straighten::level(picture);
        benchmark::DoNotOptimize(found);
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    bench::reportCopyPasses(state, total / double(state.iterations()), copy);
}

// The editor's proxy of that frame: what "auto straighten" sees.
void BM_LevelProxy(benchmark::State& state) {
    measure(state, img::resize(mosaic(), 2400, 1600));
}
BENCHMARK(BM_LevelProxy)->Unit(benchmark::kMillisecond)->UseRealTime();

// What --horizon does with a full-size photo: the whole picture goes in.
void BM_LevelFullSize(benchmark::State& state) {
    measure(state, mosaic());
}
BENCHMARK(BM_LevelFullSize)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
