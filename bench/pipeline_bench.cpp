// The develop pipeline on a real photo's 2400 × 1600 proxy: the default record, a typical and a
// heavy edit (medians), the cube bake, the cost of each stage alone, and the heavy edit on the
// full 24-megapixel picture with the process's peak memory. Every preview figure is also given
// in copy passes over the same picture, measured in the same run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "CopyBaseline.h"
#include "imaging/Gradient.h"
#include "imaging/LanczosScale.h"
#include "render/ColorLUT.h"
#include "render/Pipeline.h"
#include "tests/support/Mosaic.h"

namespace {

using namespace ql;
using Clock = std::chrono::steady_clock;

img::Image fullPicture() {
    // Photos of the sample shoot at their native detail, tiled to a 24-megapixel frame.
    return testing::sampleMosaic(6000, 4000,
                                 {"party_crowd_indoor.jpg", "three_men_night_flash.jpg",
                                  "event_hall_group.jpg", "iphone7.heic"});
}

// A soft upright ellipse in the middle: where a person stands.
img::Image personMask(int w, int h) {
    img::Image mask = img::Image::forOverwrite(w, h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const double dx = (x - 0.5 * w) / (0.18 * w), dy = (y - 0.55 * h) / (0.4 * h);
            const float v = float(std::clamp(1.5 - std::sqrt(dx * dx + dy * dy), 0.0, 1.0));
            mask.set(x, y, {v, v, v, 1});
        }
    return mask;
}

Adjustments typicalEdit() {
    Adjustments a;
    a.exposure = 0.35, a.contrast = 18, a.highlights = -30, a.shadows = 30;
    a.whites = 8, a.blacks = -6, a.vibrance = 15;
    a.curves.master = {{0, 0}, {0.25, 0.22}, {0.75, 0.79}, {1, 1}};
    return a;
}

Adjustments heavyEdit() {
    Adjustments a = typicalEdit();
    a.clarity = 30, a.texture = 20, a.dehaze = 10, a.noiseReduction = 30, a.sharpening = 40;
    a.vignette = -25, a.grain = 15;
    a.people.exposure = 0.3, a.people.clarity = 15;
    a.background.saturation = -20, a.background.exposure = -0.2;
    return a;
}

double seconds(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(const std::function<void()>& work, int runs = 9) {
    work();  // warm: caches, the cube, first-touch pages
    std::vector<double> t;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        work();
        t.push_back(seconds(start));
    }
    std::nth_element(t.begin(), t.begin() + runs / 2, t.end());
    return t[size_t(runs / 2)];
}

long peakResidentKB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmHWM:", 0) == 0) return std::atol(line.c_str() + 6);
    return 0;
}

// Runs in a fresh process, so its peak memory is that of a full-size render alone. As in an
// export, the decoded picture is handed over to the render, and the person mask comes at the
// size the people were found at (a 2048-pixel long edge).
int fullSize() {
    img::Image full = fullPicture();
    const img::Image mask = personMask(2048, 1365);
    const Pipeline pipeline;
    const auto start = Clock::now();
    img::Image out =
        pipeline.apply(heavyEdit(), std::move(full), false, {}, true, mask, nullptr, {});
    const double s = seconds(start);
    if (out.empty()) std::printf("full size 6000x4000, heavy edit: the render failed\n");
    std::printf(
        "full size 6000x4000, heavy edit: %.2f s (budget 2.5 s), peak memory %.0f MB "
        "(budget 1200 MB)\n",
        s, peakResidentKB() / 1024.0);
    if (out.empty()) return 1;
    // A batch export renders photo after photo in one process, on memory the first one mapped
    // (the first photo's result written and let go).
    out = {};
    full = fullPicture();
    const auto again = Clock::now();
    const img::Image second =
        pipeline.apply(heavyEdit(), std::move(full), false, {}, true, mask, nullptr, {});
    std::printf("the same again in the same process: %.2f s, peak memory %.0f MB\n", seconds(again),
                peakResidentKB() / 1024.0);
    return second.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--full-size") return fullSize();

    const img::Image proxy = img::resize(fullPicture(), 2400, 1600);
    const img::Image mask = personMask(2400, 1600);
    const double copy = bench::copySeconds(proxy);
    const Pipeline pipeline;
    const auto apply = [&](const Adjustments& a) {
        return [&, a] { pipeline.apply(a, proxy, false, {}, true, mask, nullptr, {}); };
    };
    std::printf("proxy 2400x1600 of a real photo; one copy pass %.1f ms\n\n", copy * 1e3);
    std::printf("%-34s %10s %12s %10s\n", "record", "median ms", "copy passes", "budget");
    const auto row = [&](const char* name, double s, const char* budget) {
        std::printf("%-34s %10.1f %12.2f %10s\n", name, s * 1e3, s / copy, budget);
    };
    row("default record", median(apply(Adjustments{})), "0.5 pass");
    row("typical edit (cube baked)", median(apply(typicalEdit())), "80 ms");
    row("heavy edit (cube baked)", median(apply(heavyEdit())), "250 ms");
    const LUTKey key(typicalEdit());
    row("cube bake 48^3 (typical key)", median([&] { ColorLUT::build(key); }), "15 ms");

    // Each stage alone, so the table shows where the time of the two edits goes.
    std::printf("\n%-34s %10s %12s\n", "stage alone", "median ms", "copy passes");
    const std::vector<std::pair<const char*, std::function<void(Adjustments&)>>> stages = {
        {"exposure", [](auto& a) { a.exposure = 0.35; }},
        {"highlight/shadow recovery", [](auto& a) { a.highlights = -30, a.shadows = 30; }},
        {"tone and colour cube", [](auto& a) { a.contrast = 18, a.vibrance = 15; }},
        {"clarity", [](auto& a) { a.clarity = 30; }},
        {"texture", [](auto& a) { a.texture = 20; }},
        {"noise reduction + chroma", [](auto& a) { a.noiseReduction = 30; }},
        {"sharpening", [](auto& a) { a.sharpening = 40; }},
        {"vignette", [](auto& a) { a.vignette = -25; }},
        {"grain", [](auto& a) { a.grain = 15; }},
        {"people and background",
         [](auto& a) {
             a.people.exposure = 0.3, a.people.clarity = 15;
             a.background.saturation = -20, a.background.exposure = -0.2;
         }},
    };
    for (const auto& [name, set] : stages) {
        Adjustments a;
        set(a);
        const double s = median(apply(a), 5);
        std::printf("%-34s %10.1f %12.2f\n", name, s * 1e3, s / copy);
    }
    std::fflush(stdout);
    std::printf("\n");
    std::fflush(stdout);
    return std::system((std::string("'") + argv[0] + "' --full-size").c_str()) == 0 ? 0 : 1;
}
