// The geometry stage on the 2400 × 1600 preview: a slight straightening with a vertical keystone,
// cropped as a render does and uncropped as the crop tool sees it, and a quarter turn with a crop
// (no resampling). Figures are copy passes over the input picture, measured in the same run.
#include <chrono>

#include "CopyBaseline.h"
#include "render/Geometry.h"

namespace {

using namespace ql;

void run(benchmark::State& state, const Adjustments& a, bool cropping) {
    const img::Image picture = bench::previewImage();
    const double copy = bench::copySeconds(picture);
    double total = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const img::Image out = Geometry::apply(a, picture, cropping);
        benchmark::DoNotOptimize(out.data());
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        state.counters["out_w"] = out.width();
        state.counters["out_h"] = out.height();
    }
    bench::reportCopyPasses(state, total / double(state.iterations()), copy);
}

Adjustments straightened() {
    Adjustments a;
    a.rotation = 3;
    a.perspectiveVertical = 20;
    return a;
}

void BM_GeometryRotate3Keystone20(benchmark::State& state) {
    run(state, straightened(), true);
}
BENCHMARK(BM_GeometryRotate3Keystone20)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_GeometryRotate3Keystone20Uncropped(benchmark::State& state) {
    run(state, straightened(), false);
}
BENCHMARK(BM_GeometryRotate3Keystone20Uncropped)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_GeometryQuarterTurnCrop(benchmark::State& state) {
    Adjustments a;
    a.quarterTurns = 1;
    a.crop = CropRect{0.1, 0.1, 0.8, 0.8};
    run(state, a, true);
}
BENCHMARK(BM_GeometryQuarterTurnCrop)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
