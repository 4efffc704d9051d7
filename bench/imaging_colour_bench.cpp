// Colour operations on the 2400×1600 preview, each reported against a plain copy of it.
#include <chrono>
#include <memory>
#include <random>
#include <vector>

#include "CopyBaseline.h"
#include "imaging/Blend.h"
#include "imaging/ColorCube.h"
#include "imaging/ColorMatrix.h"

namespace {

using namespace ql::img;

// Noise is the worst case for the cube: neighbouring pixels land in unrelated cells.
Image noise(unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(0, 1);
    Image image(2400, 1600);
    float* p = image.data();
    for (size_t i = 0; i < image.pixelCount(); ++i, p += 4)
        p[0] = d(rng), p[1] = d(rng), p[2] = d(rng), p[3] = 1;
    return image;
}

// A smooth but non-trivial 48-point grade in sRGB space.
ColorCubeParams grade() {
    constexpr int n = 48;
    auto data = std::make_shared<std::vector<float>>();
    data->reserve(size_t(n) * n * n * 4);
    for (int b = 0; b < n; ++b)
        for (int g = 0; g < n; ++g)
            for (int r = 0; r < n; ++r) {
                const float x = float(r) / (n - 1), y = float(g) / (n - 1), z = float(b) / (n - 1);
                data->insert(data->end(),
                             {x * x * (3 - 2 * x), 0.9f * y + 0.1f * z, 0.8f * z + 0.1f, 1});
            }
    return {n, data, true};
}

template <class Op>
void run(benchmark::State& state, const Image& input, Op&& op) {
    const double copy = ql::bench::copySeconds(input);
    double total = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(op(input).data());
        total += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    ql::bench::reportCopyPasses(state, total / double(state.iterations()), copy);
}

void BM_ColorCube48(benchmark::State& state) {
    const ColorCubeParams cube = grade();
    run(state, ql::bench::previewImage(), [&](const Image& in) { return colorCube(in, cube); });
}
BENCHMARK(BM_ColorCube48)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ColorCube48Noise(benchmark::State& state) {
    const ColorCubeParams cube = grade();
    run(state, noise(1), [&](const Image& in) { return colorCube(in, cube); });
}
BENCHMARK(BM_ColorCube48Noise)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ColorMatrix(benchmark::State& state) {
    ColorMatrixParams m;
    m.red = {0.9f, 0.1f, 0, 0};
    m.green = {0.05f, 0.9f, 0.05f, 0};
    m.bias = {0.01f, 0, -0.01f, 0};
    run(state, ql::bench::previewImage(), [&](const Image& in) { return colorMatrix(in, m); });
}
BENCHMARK(BM_ColorMatrix)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SoftLight(benchmark::State& state) {
    const Image bottom = noise(2);
    run(state, ql::bench::previewImage(),
        [&](const Image& in) { return blend(in, bottom, {BlendMode::softLight}); });
}
BENCHMARK(BM_SoftLight)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
