// Export, whole process, against the raw converters photographers know.
//
// In one run on a 24-megapixel JPEG and DNG (see BenchPhotos.h): `quillarium --render` to a
// full-size JPEG and to a 16-bit TIFF, and the same export limited to 2048 pixels (this program
// run as a child, since --render always exports at full size), each a median of 3 with its peak
// memory; beside them `vips` copy and resize of the JPEG, and `darktable-cli` (--hq true) and
// `rawtherapee-cli` of the DNG at 2048 pixels and at full size, with their default processing.
//
// Usage: ql_bench_export [work-folder]   (default: a folder under /tmp, removed at the end)

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchPhotos.h"
#include "BenchProcess.h"
#include "render/Exporter.h"

namespace {

using namespace ql;
using namespace ql::bench;
namespace fs = std::filesystem;

// The child: what --render does, with the long edge limited.
int exportLimited(const std::string& in, const std::string& out, double longEdge) {
    try {
        ImageSource source(in, 2400);
        const Pipeline pipeline;
        Exporter::exportImage(source, {}, pipeline, {ExportFormat::jpeg, 92, true, longEdge}, out,
                              std::nullopt, {}, PhotoMeta{});
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
}

struct Peer {
    const char* name;
    Run run;
};

void compare(const char* what, const Run& ours, std::initializer_list<Peer> peers, double target) {
    row(what, ours);
    const Peer* fastest = nullptr;
    for (const Peer& p : peers) {
        row((std::string("  ") + p.name).c_str(), p.run);
        if (p.run.status == 0 && (!fastest || p.run.seconds < fastest->run.seconds)) fastest = &p;
    }
    if (fastest && target > 0)
        std::printf("  ours / %s = %.2f (target <= %.1f)\n", fastest->name,
                    ours.seconds / fastest->run.seconds, target);
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::string(argv[1]) == "--export-child")
        return exportLimited(argv[2], argv[3], std::atof(argv[4]));
    const bench::WorkFolder work(argc, argv, "export");
    const fs::path& dir = work.path();
    const std::string exe = QUILLARIUM_EXE;
    const std::string self = fs::canonical("/proc/self/exe").string();
    const BenchPhotos photos = writeBenchPhotos(dir);
    const auto out = [&](const char* name) { return (dir / name).string(); };

    // The peers keep their settings and caches here, not in the user's home.
    const std::string peerHome = out("peer-home");
    fs::create_directories(peerHome);
    setenv("HOME", peerHome.c_str(), 1);
    const std::string resize = out("resize2048.pp3");
    std::ofstream(resize) << "[Resize]\nEnabled=true\nScale=1\nAppliesTo=Cropped area\n"
                             "Method=Lanczos\nDataSpecified=3\nWidth=2048\nHeight=2048\n"
                             "AllowUpscaling=false\n";
    const auto darktable = [&](const std::string& to, bool limited) {
        std::vector<std::string> args = {"/usr/bin/darktable-cli", photos.dng, to, "--hq", "true"};
        if (limited) args.insert(args.end(), {"--width", "2048", "--height", "2048"});
        args.insert(args.end(),
                    {"--core", "--library", ":memory:", "--configdir", out("darktable-config")});
        return spawn(args);
    };
    const auto rawtherapee = [&](const std::string& to, bool limited) {
        std::vector<std::string> args = {"/usr/bin/rawtherapee-cli", "-o", to, "-j92", "-Y", "-d"};
        if (limited) args.insert(args.end(), {"-p", resize});
        args.insert(args.end(), {"-c", photos.dng});
        return spawn(args);
    };

    for (const std::string& file : {photos.jpeg, photos.dng}) {
        const bool raw = file == photos.dng;
        std::printf("== 24 MP %s\n", raw ? "DNG" : "JPEG");
        const Run full = median([&] { return spawn({exe, "--render", file, out("full.jpg")}); });
        const Run small = median([&] {
            return spawn({self, "--export-child", file, out("small.jpg"), "2048"});
        });
        const Run tiff = median([&] { return spawn({exe, "--render", file, out("full.tif")}); });
        if (raw) {
            compare("--render to a full-size JPEG", full,
                    {{"darktable-cli, full size",
                      median([&] { return darktable(out("dt.jpg"), false); })},
                     {"rawtherapee-cli, full size",
                      median([&] { return rawtherapee(out("rt.jpg"), false); })}},
                    0.5);
            compare("export to a 2048 px JPEG", small,
                    {{"darktable-cli, 2048 px",
                      median([&] { return darktable(out("dt2048.jpg"), true); })},
                     {"rawtherapee-cli, 2048 px",
                      median([&] { return rawtherapee(out("rt2048.jpg"), true); })}},
                    0.5);
        } else {
            compare("--render to a full-size JPEG", full,
                    {{"vips copy", median([&] {
                          return spawn({"vips", "copy", file, out("vips.jpg[Q=92]")});
                      })}},
                    0);
            compare("export to a 2048 px JPEG", small,
                    {{"vips resize", median([&] {
                          return spawn({"vips", "resize", file, out("vips2048.jpg[Q=92]"),
                                        std::to_string(2048.0 / 6000.0)});
                      })}},
                    0);
        }
        compare("--render to a 16-bit TIFF", tiff, {}, 0);
    }
    return 0;
}
