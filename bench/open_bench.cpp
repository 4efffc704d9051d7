// Opening photos and --render, measured against the decoders that photographers know.
//
// Writes a 24-megapixel JPEG and a 24-megapixel DNG made from the real photographs of the sample
// shoot (a mosaic at their native resolution, so the detail is a camera's, not an upscale's),
// then in one run times: opening each with a 2400-pixel proxy, fullBase, and the whole
// `quillarium --render` process to a full-size JPEG with its peak memory; beside them, as
// reference points on the same files, `dcraw_emu -h`, `dcraw_emu` and `vips copy`.
//
// Usage: ql_bench_open [work-folder]   (default: a folder under /tmp, removed at the end)
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "imaging/Orientation.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/raw/WhiteBalance.h"
#include "render/ImageSource.h"
#include "tests/support/DngWriter.h"
#include "tests/support/Mosaic.h"

namespace {

using namespace ql;
using Clock = std::chrono::steady_clock;
constexpr int kWidth = 6000, kHeight = 4000, kRuns = 3;

img::Image mosaic() {
    return testing::sampleMosaic(kWidth, kHeight,
                                 {"iphone7.heic", "party_crowd_indoor.jpg",
                                  "three_men_night_flash.jpg", "event_hall_group.jpg"});
}

struct Run {
    double seconds = 0;
    long peakKB = 0;
    int status = 0;
};

// Runs a command with its output discarded: wall time, and its peak resident memory as GNU time
// reports it (a child's own rusage would count this process's pictures, which it inherits until
// exec).
Run spawn(std::vector<std::string> argv) {
    const std::string report =
        (std::filesystem::temp_directory_path() / ("ql-bench-rss-" + std::to_string(getpid())))
            .string();
    argv.insert(argv.begin(), {"/usr/bin/time", "-f", "%M", "-o", report});
    std::fflush(stdout);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    std::vector<char*> args;
    for (const auto& a : argv)
        args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    const auto start = Clock::now();
    pid_t pid = 0;
    const int failed = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed) return {0, 0, 127};
    int status = 0;
    waitpid(pid, &status, 0);
    Run run{std::chrono::duration<double>(Clock::now() - start).count(), 0,
            WIFEXITED(status) ? WEXITSTATUS(status) : -1};
    if (FILE* f = std::fopen(report.c_str(), "r")) {
        if (std::fscanf(f, "%ld", &run.peakKB) != 1) run.peakKB = 0;
        std::fclose(f);
    }
    std::remove(report.c_str());
    return run;
}

Run best(const std::function<Run()>& once) {
    std::vector<Run> runs;
    for (int i = 0; i < kRuns; ++i)
        runs.push_back(once());
    std::sort(runs.begin(), runs.end(),
              [](const Run& a, const Run& b) { return a.seconds < b.seconds; });
    Run median = runs[runs.size() / 2];
    for (const Run& r : runs)
        median.peakKB = std::max(median.peakKB, r.peakKB);
    return median;
}

Run timed(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return {std::chrono::duration<double>(Clock::now() - start).count(), 0, 0};
}

void row(const char* what, const Run& r, const char* note = "") {
    if (r.peakKB > 0)
        std::printf("%-44s %8.3f s %8.0f MB %s\n", what, r.seconds, r.peakKB / 1024.0, note);
    else
        std::printf("%-44s %8.3f s %11s %s\n", what, r.seconds, "", note);
    if (r.status != 0) std::printf("  (exit status %d)\n", r.status);
}

}  // namespace

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    const bool own = argc < 2;
    const fs::path dir =
        own ? fs::temp_directory_path() / ("ql-bench-open-" + std::to_string(getpid()))
            : fs::path(argv[1]);
    fs::create_directories(dir);
    const std::string jpeg = (dir / "mosaic24.jpg").string(), dng = (dir / "mosaic24.dng").string();
    const std::string exe = QUILLARIUM_EXE;

    std::printf("writing a %dx%d JPEG and DNG from the sample shoot...\n", kWidth, kHeight);
    const img::Image scene = mosaic();
    img::writeJpeg(scene, jpeg, img::JpegWriteOptions{92, {}, {}});
    // The DNG's camera: published matrices of a 24-megapixel-class APS-C body, lit by D65.
    testing::DngSpec spec = testing::apscCameraSpec(kWidth, kHeight);
    spec.iso = 800;
    const img::CameraCalibration cal{*spec.colorMatrix2, 6504, spec.colorMatrix1, 2856};
    spec.asShotNeutral = img::cameraNeutral(cal, img::kD65White);
    // Linear sRGB to XYZ (D65), then the camera's own matrix.
    const double toXyz[9] = {0.4124564, 0.3575761, 0.1804375, 0.2126729, 0.7151522,
                             0.0721750, 0.0193339, 0.1191920, 0.9503041};
    double m[9] = {};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k)
                m[r * 3 + c] += (*spec.colorMatrix2)[size_t(r * 3 + k)] * toXyz[k * 3 + c];
    const double scale =
        0.9 / std::max({spec.asShotNeutral[0], spec.asShotNeutral[1], spec.asShotNeutral[2]});
    testing::writeDng(dng, spec, [&](int x, int y) {
        const img::Pixel p = scene.at(x, y);
        std::array<float, 3> cam{};
        for (int r = 0; r < 3; ++r)
            cam[size_t(r)] =
                float(scale * (m[r * 3] * p.r + m[r * 3 + 1] * p.g + m[r * 3 + 2] * p.b));
        return cam;
    });
    std::printf("JPEG %.1f MB, DNG %.1f MB\n\n", fs::file_size(jpeg) / 1e6,
                fs::file_size(dng) / 1e6);

    const Adjustments none;
    for (const std::string& file : {jpeg, dng}) {
        const bool raw = file == dng;
        std::printf("%s\n", raw ? "24 MP DNG" : "24 MP JPEG");
        const Run open = best([&] {
            return timed([&] {
                ImageSource source(file, 2400);
                if (source.previewBase(none).empty()) std::printf("  no proxy!\n");
            });
        });
        row("  open with a 2400 px proxy", open);
        ImageSource source(file, 2400);
        const Run full = best([&] { return timed([&] { source.fullBase(none); }); });
        row("  fullBase", full);
        const std::string out = (dir / "out.jpg").string();
        const Run render = best([&] { return spawn({exe, "--render", file, out}); });
        row("  quillarium --render to a full-size JPEG", render);
        if (raw) {
            const Run half = best([&] { return spawn({"dcraw_emu", "-h", file}); });
            const Run whole = best([&] { return spawn({"dcraw_emu", file}); });
            row("  dcraw_emu -h (reference)", half);
            row("  dcraw_emu (reference)", whole);
            std::printf("  open with proxy / dcraw_emu -h = %.2f (target <= 1)\n",
                        open.seconds / half.seconds);
            std::printf("  render / dcraw_emu = %.2f\n", render.seconds / whole.seconds);
        } else {
            const Run copy = best([&] {
                return spawn({"vips", "copy", file, (dir / "vips.jpg").string()});
            });
            row("  vips copy (reference)", copy);
            std::printf("  render / vips copy = %.2f (target <= 1.3)\n",
                        render.seconds / copy.seconds);
        }
        std::printf("  render peak memory %.0f MB (target <= 1200)\n\n", render.peakKB / 1024.0);
    }
    if (own) fs::remove_all(dir);
    return 0;
}
