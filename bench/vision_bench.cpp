// People analysis on a 3000 × 2000 photo of six people at a café table (four facing the camera,
// two in profile behind): faces, landmarks per face, the person mask, every mask of one face, and
// a face print per face.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "imaging/CropRegion.h"
#include "imaging/LanczosScale.h"
#include "people/FaceMaskDrawing.h"
#include "render/ImageSource.h"
#include "vision/FaceDetector.h"
#include "vision/FaceParts.h"
#include "vision/FacePrint.h"
#include "vision/PersonMask.h"

namespace {

using namespace ql;

const img::Image& photo() {
    static const img::Image picture = [] {
        ImageSource source(QL_LABELLED_DIR "/group_cafe_indoor.jpg", 4096);
        const img::Image base = source.previewBase(Adjustments{});
        const img::Image wide = img::resize(base, 3000, 2250);
        return img::crop(wide, {0, 0, 3000, 2000});
    }();
    return picture;
}

const vision::Bitmap& bitmap() {
    static const vision::Bitmap b = vision::Bitmap::of(photo());
    return b;
}

const std::vector<vision::DetectedFace>& faces() {
    static const auto found = vision::FaceDetector::find(bitmap(), 0.6f);
    return found;
}

// Times `work`, after one call that loads the models and warms the picture memory: those
// happen once per program, not once per photo. Reports milliseconds per face too.
template <class Work>
void timed(benchmark::State& state, double faces, Work work) {
    benchmark::DoNotOptimize(work());
    double total = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(work());
        total += std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                     .count();
    }
    state.counters["faces"] = faces;
    state.counters["ms_per_face"] = total / double(state.iterations()) / std::max(1.0, faces);
}

// The 8-bit copy every model looks at, at the person mask's 2048 pixels: part of each figure below
// that starts from the engine's picture.
void BM_Bitmap(benchmark::State& state) {
    timed(state, 0, [] { return vision::Bitmap::of(photo(), 2048); });
}
BENCHMARK(BM_Bitmap)->Unit(benchmark::kMillisecond)->UseRealTime();

// From the engine's picture, as the editor asks: the 1600-pixel copy is part of the cost.
void BM_Faces(benchmark::State& state) {
    timed(state, double(faces().size()), [] { return vision::FaceDetector::detect(photo()); });
}
BENCHMARK(BM_Faces)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LandmarksPerFace(benchmark::State& state) {
    timed(state, double(faces().size()),
          [] { return vision::FaceParts::detect(bitmap(), faces()); });
}
BENCHMARK(BM_LandmarksPerFace)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_PersonMask(benchmark::State& state) {
    timed(state, double(faces().size()), [] { return vision::PersonMask::compute(photo()); });
}
BENCHMARK(BM_PersonMask)->Unit(benchmark::kMillisecond)->UseRealTime();

// The person mask fitted, feathered, to a 24-megapixel export.
void BM_PersonMaskFittedFullSize(benchmark::State& state) {
    const auto mask = vision::PersonMask::compute(photo());
    if (!mask) {
        state.SkipWithError("no people found");
        return;
    }
    timed(state, 0, [&] { return vision::PersonMask::fitted(*mask, 6000, 4000, true); });
}
BENCHMARK(BM_PersonMaskFittedFullSize)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every mask of the most certain face, drawn at the photo's size.
void BM_FaceMasksOneFace(benchmark::State& state) {
    const auto shapes = vision::FaceParts::detect(bitmap(), faces());
    if (shapes.empty()) {
        state.SkipWithError("no face found");
        return;
    }
    const std::vector<vision::FaceShape> one{shapes.front()};
    const img::Image& p = photo();
    timed(state, 1, [&] {
        FaceMasks skin;
        skin.skin = FaceParts::skinDisc({one.front().box}, p.width(), p.height());
        return FaceParts::masks(one, p.width(), p.height(), skin);
    });
}
BENCHMARK(BM_FaceMasksOneFace)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FacePrintPerFace(benchmark::State& state) {
    std::vector<vision::Rect> boxes;
    for (const auto& f : faces())
        boxes.push_back({f.box.x * bitmap().width, f.box.y * bitmap().height,
                         f.box.width * bitmap().width, f.box.height * bitmap().height});
    timed(state, double(boxes.size()), [&] {
        int n = 0;
        for (const auto& box : boxes)
            n += vision::FacePrint::of(bitmap(), box).has_value();
        return n;
    });
}
BENCHMARK(BM_FacePrintPerFace)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
