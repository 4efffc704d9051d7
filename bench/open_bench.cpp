// Opening photos and --render, measured against the decoders that photographers know.
//
// Writes a 24-megapixel JPEG and a 24-megapixel DNG made from the real photographs of the sample
// shoot (a mosaic at their native resolution, so the detail is a camera's, not an upscale's),
// then in one run times: opening each with a 2400-pixel proxy, fullBase, and the whole
// `quillarium --render` process to a full-size JPEG with its peak memory; beside them, as
// reference points on the same files, `dcraw_emu -h`, `dcraw_emu` and `vips copy`.
//
// Usage: ql_bench_open [work-folder]   (default: a folder under /tmp, removed at the end)

#include <cstdio>
#include <filesystem>
#include <string>

#include "BenchPhotos.h"
#include "BenchProcess.h"
#include "render/ImageSource.h"

int main(int argc, char** argv) {
    using namespace ql;
    using namespace ql::bench;
    namespace fs = std::filesystem;
    const bench::WorkFolder work(argc, argv, "open");
    const fs::path& dir = work.path();
    const std::string exe = QUILLARIUM_EXE;

    const BenchPhotos photos = writeBenchPhotos(dir);
    const std::string &jpeg = photos.jpeg, &dng = photos.dng;

    const Adjustments none;
    for (const std::string& file : {jpeg, dng}) {
        const bool raw = file == dng;
        std::printf("%s\n", raw ? "24 MP DNG" : "24 MP JPEG");
        const Run open = median([&] {
            return timed([&] {
                ImageSource source(file, 2400);
                if (source.previewBase(none).empty()) std::printf("  no proxy!\n");
            });
        });
        row("  open with a 2400 px proxy", open);
        ImageSource source(file, 2400);
        const Run full = median([&] { return timed([&] { source.fullBase(none); }); });
        row("  fullBase", full);
        const std::string out = (dir / "out.jpg").string();
        const Run render = median([&] { return spawn({exe, "--render", file, out}); });
        row("  quillarium --render to a full-size JPEG", render);
        if (raw) {
            const Run half = median([&] { return spawn({"dcraw_emu", "-h", file}); });
            const Run whole = median([&] { return spawn({"dcraw_emu", file}); });
            row("  dcraw_emu -h (reference)", half);
            row("  dcraw_emu (reference)", whole);
            std::printf("  open with proxy / dcraw_emu -h = %.2f (target <= 1)\n",
                        open.seconds / half.seconds);
            std::printf("  render / dcraw_emu = %.2f\n", render.seconds / whole.seconds);
        } else {
            const Run copy = median([&] {
                return spawn({"vips", "copy", file, (dir / "vips.jpg").string()});
            });
            row("  vips copy (reference)", copy);
            std::printf("  render / vips copy = %.2f (target <= 1.3)\n",
                        render.seconds / copy.seconds);
        }
        std::printf("  render peak memory %.0f MB (target <= 1200)\n\n", render.peakKB / 1024.0);
    }
    return 0;
}
