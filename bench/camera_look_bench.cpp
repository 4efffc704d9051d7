// The camera look learnt at opening, on a 24-megapixel DNG made from the sample shoot that
// embeds a full-size JPEG of the same picture (as most cameras do). Its three parts: the plain
// 320-pixel sample developed from the opened DNG, finding and decoding the embedded JPEG, and the
// fit; their sum is the look's cost (the image source runs the first two side by side). Beside
// them, opening the DNG with its 2400-pixel proxy with and without an embedded JPEG. The CPU
// column is the whole process's, all threads.
//
// Usage: ql_bench_camera_look [benchmark options]   (writes two DNGs to a folder under /tmp)
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include "imaging/BoxShrink.h"
#include "imaging/SrgbTransfer.h"
#include "imaging/raw/RawDecoder.h"
#include "imaging/raw/RawNoiseReduction.h"
#include "render/CameraLook.h"
#include "render/ImageSource.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Mosaic.h"

namespace {

using namespace ql;
namespace fs = std::filesystem;

struct Files {
    std::string withJpeg, withoutJpeg;
};
Files files;

// Sensor data of `scene` (linear sRGB; this camera sees it as is), and when asked a full-size
// preview of it at quality 90.
void writeDng(const std::string& path, const img::Image& scene, bool preview) {
    testing::DngSpec spec;
    spec.width = scene.width(), spec.height = scene.height();
    spec.asShotNeutral = {1, 1, 1};
    spec.iso = 400;
    if (preview) {
        spec.previewWidth = scene.width(), spec.previewHeight = scene.height();
        spec.previewRGB.resize(scene.pixelCount() * 3);
        for (size_t i = 0; i < spec.previewRGB.size(); ++i) {
            // A warmer, punchier rendering than the plain one, as cameras make.
            const float v = scene.data()[i / 3 * 4 + i % 3] * (i % 3 == 0 ? 1.1f : 1.0f);
            spec.previewRGB[i] = uint8_t(img::SrgbEncodeTable::shared().clamped(v) * 255 + 0.5f);
        }
    }
    testing::writeDng(path, spec, [&](int x, int y) {
        const img::Pixel p = scene.at(x, y);
        return std::array<float, 3>{p.r * 0.9f, p.g * 0.9f, p.b * 0.9f};
    });
}

// The plain side, as the image source makes it at opening from the unpacked sensor data: the
// half-size development under the as-shot white balance, shrunk to the sample size, with the
// RAW noise reduction at that size.
void BM_PlainSample(benchmark::State& state) {
    const auto raw = img::RawDecoder::open(files.withJpeg);
    const auto& facts = raw->facts();
    raw->develop(facts.asShotMultipliers, true);  // unpacks the sensor data once
    const double s = double(CameraLook::kSampleLongEdge) / std::max(facts.width, facts.height);
    const int w = int(std::lround(facts.width * s)), h = int(std::lround(facts.height * s));
    for (auto _ : state) {
        img::Image plain = raw->develop(facts.asShotMultipliers, true);
        plain = img::shrinkTo(plain, w, h, 2.0);
        plain = img::rawNoiseReduction(plain, {0.1f, 0.9f, float(s)});
        benchmark::DoNotOptimize(plain.data());
    }
}
BENCHMARK(BM_PlainSample)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// The camera side: the file searched for its largest JPEG (LibRaw's preview included), which is
// decoded at the smallest DCT scale that still covers the sample.
void BM_EmbeddedJpeg(benchmark::State& state) {
    const auto raw = img::RawDecoder::open(files.withJpeg);
    for (auto _ : state)
        benchmark::DoNotOptimize(CameraLook::embeddedImage(files.withJpeg, 1, raw.get()).data());
}
BENCHMARK(BM_EmbeddedJpeg)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_EmbeddedJpegSearchOnly(benchmark::State& state) {
    const auto raw = img::RawDecoder::open(files.withJpeg);
    for (auto _ : state)
        benchmark::DoNotOptimize(CameraLook::embeddedJPEG(files.withJpeg, raw.get()).data());
}
BENCHMARK(BM_EmbeddedJpegSearchOnly)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

void BM_Fit(benchmark::State& state) {
    ImageSource source(files.withJpeg, CameraLook::kSampleLongEdge);
    const img::Image plain = source.previewBase(Adjustments{});
    const img::Image camera = CameraLook::embeddedImage(files.withJpeg, source.orientation());
    double before = 0, after = 0;
    for (auto _ : state) {
        const CameraLook::Fit fit = CameraLook::fit(plain, camera);
        if (!fit.lut) state.SkipWithError("the fit failed");
        before = fit.before, after = fit.error;
    }
    state.counters["before"] = before;
    state.counters["after"] = after;
}
BENCHMARK(BM_Fit)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Opening as the editor does: the source (which learns the look, unpacking the sensor data on
// the way) and its default proxy. Against the same DNG without a JPEG the difference is what the
// look adds.
void openWithProxy(benchmark::State& state, const std::string& path, bool expectLook) {
    for (auto _ : state) {
        ImageSource source(path, 2400);
        benchmark::DoNotOptimize(source.previewBase(Adjustments{}).data());
        if (bool(source.cameraLUT()) != expectLook) state.SkipWithError("unexpected look");
    }
}
void BM_OpenWithProxy_EmbeddedJpeg(benchmark::State& state) {
    openWithProxy(state, files.withJpeg, true);
}
void BM_OpenWithProxy_NoJpeg(benchmark::State& state) {
    openWithProxy(state, files.withoutJpeg, false);
}
BENCHMARK(BM_OpenWithProxy_EmbeddedJpeg)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();
BENCHMARK(BM_OpenWithProxy_NoJpeg)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const fs::path dir =
        fs::temp_directory_path() / ("ql-bench-camera-look-" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::printf("writing two 6000x4000 DNGs from the sample shoot...\n");
    const img::Image scene =
        testing::sampleMosaic(6000, 4000,
                              {"iphone7.heic", "party_crowd_indoor.jpg",
                               "three_men_night_flash.jpg", "event_hall_group.jpg"});
    files = {(dir / "with-jpeg.dng").string(), (dir / "without-jpeg.dng").string()};
    writeDng(files.withJpeg, scene, true);
    writeDng(files.withoutJpeg, scene, false);
    std::printf("DNG with its JPEG %.1f MB, without %.1f MB\n", fs::file_size(files.withJpeg) / 1e6,
                fs::file_size(files.withoutJpeg) / 1e6);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    fs::remove_all(dir);
    return 0;
}
