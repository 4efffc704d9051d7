// The analysis every automatic editor starts from, and the expert editor over a shoot.
//
// Times, on a 24-megapixel JPEG made from the sample shoot, what a batch does per photo: open it
// with a 1200-pixel proxy and make its PhotoAnalysis (render, 640-pixel sample, statistics,
// faces, colours, sharpness, level, people, auto tone). Then runs `quillarium --expert` over 20
// photos of the sample shoot at their native size and reports photos per minute.
//
// Usage: ql_bench_analysis [work-folder]   (default: a folder under /tmp, removed at the end)

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchPhotos.h"
#include "BenchProcess.h"
#include "analysis/PhotoAnalyzer.h"

int main(int argc, char** argv) {
    using namespace ql;
    using namespace ql::bench;
    namespace fs = std::filesystem;
    const bench::WorkFolder work(argc, argv, "analysis");
    const fs::path& dir = work.path();
    const BenchPhotos photos = writeBenchPhotos(dir);
    const Pipeline pipeline;

    {  // Models load once per process; a batch pays that once, not per photo.
        ImageSource warm(photos.jpeg, 1200);
        PhotoAnalyzer(pipeline).analysis(warm, false);
    }
    const Run whole = median(
        [&] {
            return timed([&] {
                ImageSource source(photos.jpeg, 1200);
                if (!PhotoAnalyzer(pipeline).analysis(source, false)) std::printf("no analysis!\n");
            });
        },
        5);
    std::printf("24 MP JPEG\n");
    row("  open with a 1200 px proxy and analyse (target <= 0.400 s)", whole);
    {
        const Run open = median([&] {
            return timed(
                [&] { ImageSource(photos.jpeg, 1200).previewBase(Adjustments::defaults()); });
        });
        row("  of which opening and the proxy", open);
    }

    // Twenty photos: the sample shoot's, cycled, each under its own name.
    std::vector<std::string> shoot;
    for (const auto& entry : fs::directory_iterator(QL_SAMPLES_DIR)) {
        const std::string ext = entry.path().extension().string();
        if (ext != ".md") shoot.push_back(entry.path().string());
    }
    std::sort(shoot.begin(), shoot.end());
    const fs::path batch = dir / "shoot", out = dir / "expert";
    fs::create_directories(batch);
    fs::create_directories(out);
    std::vector<std::string> command{QUILLARIUM_EXE, "--expert", out.string()};
    for (int i = 0; i < 20 && !shoot.empty(); ++i) {
        const fs::path from = shoot[size_t(i) % shoot.size()];
        const fs::path to =
            batch / (from.stem().string() + "_" + std::to_string(i) + from.extension().string());
        fs::copy_file(from, to, fs::copy_options::overwrite_existing);
        command.push_back(to.string());
    }
    const Run expert = spawn(command);
    std::printf("quillarium --expert over %zu photos of the sample shoot\n", command.size() - 3);
    row("  whole run", expert);
    std::printf("  %.1f photos per minute\n", double(command.size() - 3) / expert.seconds * 60);
    return 0;
}
