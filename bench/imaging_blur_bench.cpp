// Blur-based operations on the 2400×1600 preview, each reported also in copy passes
// (its time over a plain copy's of the same image), the measure their budgets are set in.
#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>

#include "CopyBaseline.h"
#include "imaging/GaussianBlur.h"
#include "imaging/HighlightShadowAdjust.h"
#include "imaging/NoiseReduction.h"
#include "imaging/UnsharpMask.h"

namespace {

using namespace ql::img;

void run(benchmark::State& state, const std::function<Image(const Image&)>& op) {
    const Image input = ql::bench::previewImage();
    const double copy = ql::bench::copySeconds(input);
    double seconds = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        Image out = op(input);
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        benchmark::DoNotOptimize(out.data());
    }
    ql::bench::reportCopyPasses(state, seconds / double(state.iterations()), copy);
}

void BM_GaussianBlur(benchmark::State& state) {
    const float sigma = float(state.range(0));
    run(state, [sigma](const Image& in) { return gaussianBlur(in, {sigma}); });
}
BENCHMARK(BM_GaussianBlur)->Arg(8)->Arg(36)->Arg(200)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_UnsharpMask36(benchmark::State& state) {
    run(state, [](const Image& in) { return unsharpMask(in, {36, 0.5f}); });
}
BENCHMARK(BM_UnsharpMask36)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_HighlightShadow14(benchmark::State& state) {
    // radius 0.006 × the long edge
    run(state, [](const Image& in) { return highlightShadowAdjust(in, {14.4f, 0.6f, 0.4f}); });
}
BENCHMARK(BM_HighlightShadow14)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_NoiseReduction(benchmark::State& state) {
    run(state, [](const Image& in) { return noiseReduction(in, {0.06f, 0.4f}); });
}
BENCHMARK(BM_NoiseReduction)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
