// How well the automatic correction repairs damaged photos, beside ImageMagick's automatic
// levels on the same files.
//
// The well-exposed photos of the sample shoot and of the labelled people set (a median between
// 0.3 and 0.7 in display values, the brightest percent above 0.85, at most 2 % clipped: a full
// tonal range and no large fault) are taken at a 1200-pixel proxy as the undamaged originals,
// damaged in a known way, written as 16-bit TIFF so that no codec loss enters the figures, then
// opened again and corrected by the Auto command (analysis, auto tone, white balance, natural
// look). Reported per damage: the mean CIEDE2000 to the original before and after our
// correction, and after `convert -auto-level`, `-auto-gamma` and both. The row "none" is the
// undamaged photo: a good photo must come back nearly unchanged.
//
// The casts are those of a wrong white balance preset (daylight under tungsten, tungsten in
// daylight): casts of a few tens of slider units are the light of the place and are left alone
// by design.
//
// Usage: ql_bench_auto_quality [work-folder [photo-folder...]]
// (default work folder: one under /tmp, removed at the end; photos of further folders join the
// set, a file name already seen counting once)

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "BenchProcess.h"
#include "analysis/AutoResult.h"
#include "analysis/ImageAnalyzer.h"
#include "analysis/PhotoAnalyzer.h"
#include "imaging/SrgbTransfer.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/TiffCodec.h"
#include "render/Develop.h"
#include "tests/support/ColourDifference.h"
#include "vision/PersonMask.h"

namespace {

using namespace ql;
namespace fs = std::filesystem;

/// A copy with `f` applied to every pixel's r, g, b (linear), alpha kept.
img::Image mapped(const img::Image& in, const std::function<void(float*, int, int)>& f) {
    img::Image out = img::Image::forOverwrite(in.width(), in.height());
    for (int y = 0; y < in.height(); ++y) {
        const float* s = in.row(y);
        float* d = out.row(y);
        for (int x = 0; x < in.width(); ++x) {
            for (int c = 0; c < 4; ++c)
                d[x * 4 + c] = s[x * 4 + c];
            f(d + x * 4, x, y);
        }
    }
    return out;
}

img::Image gain(const img::Image& in, float r, float g, float b) {
    return mapped(in, [=](float* p, int, int) { p[0] *= r, p[1] *= g, p[2] *= b; });
}

struct Damage {
    std::string name;
    std::function<std::optional<img::Image>(const img::Image&)> apply;
};

std::vector<Damage> damages() {
    const auto ev = [](double stops) {
        return [stops](const img::Image& i) -> std::optional<img::Image> {
            const float k = float(std::exp2(stops));
            return gain(i, k, k, k);
        };
    };
    return {
        {"none", [](const img::Image& i) -> std::optional<img::Image> { return i; }},
        {"under -1 EV", ev(-1)},
        {"under -2 EV", ev(-2)},
        {"over +1 EV", ev(1)},
        {"over +2 EV", ev(2)},
        {"warm cast",
         [](const img::Image& i) -> std::optional<img::Image> {
             return gain(i, 1.5f, 1.0f, 0.6f);
         }},
        {"cold cast",
         [](const img::Image& i) -> std::optional<img::Image> {
             return gain(i, 0.65f, 0.95f, 1.5f);
         }},
        {"flat, low contrast",
         [](const img::Image& i) -> std::optional<img::Image> {
             // A veil over the whole picture, blacks lifted to a fifth of white: haze, or flare.
             return mapped(i, [](float* p, int, int) {
                 for (int c = 0; c < 3; ++c)
                     p[c] = img::srgbDecode(0.2f +
                                            0.8f * std::clamp(img::srgbEncode(p[c]), 0.0f, 1.0f));
             });
         }},
        {"backlit subject",
         [](const img::Image& i) -> std::optional<img::Image> {
             // The people 1.5 EV darker than the rest, which is brighter: a window behind them.
             const auto person = vision::PersonMask::compute(i);
             if (!person || vision::PersonMask::coverage(*person) < 0.03) return std::nullopt;
             const img::Image mask =
                 vision::PersonMask::fitted(*person, i.width(), i.height(), true);
             return mapped(i, [&](float* p, int x, int y) {
                 const float m = mask.row(y)[x * 4];
                 const float k = m * 0.354f + (1 - m) * 1.41f;
                 for (int c = 0; c < 3; ++c)
                     p[c] *= k;
             });
         }},
    };
}

img::Image readBack(const std::string& path) {
    return img::decodeImage(img::readFileBytes(path));
}

double meanDeltaE(const img::Image& a, const img::Image& b) {
    if (a.width() != b.width() || a.height() != b.height()) return NAN;
    return testing::compare(a, b).mean;
}

img::Image autoCorrected(const std::string& path, const Pipeline& pipeline) {
    ImageSource source(path, 1200);
    const auto analysis = PhotoAnalyzer(pipeline).analysis(source, false);
    if (!analysis) return {};
    const Adjustments edit = autoResult({}, *analysis, PhotoFacts::of(source));
    return develop(source, pipeline, edit, source.previewBase(edit));
}

}  // namespace

int main(int argc, char** argv) {
    const bench::WorkFolder work(argc, argv, "auto");
    const fs::path& dir = work.path();

    std::vector<std::string> folders{QL_SAMPLES_DIR, QL_LABELLED_DIR};
    for (int i = 2; i < argc; ++i)
        folders.push_back(argv[i]);
    std::vector<std::string> photos;
    std::set<std::string> seen;
    for (const std::string& folder : folders)
        for (const auto& e : fs::directory_iterator(folder)) {
            std::string ext = e.path().extension().string();
            std::transform(ext.begin(), ext.end(), ext.begin(), ::tolower);
            if ((ext == ".jpg" || ext == ".png" || ext == ".tif" || ext == ".heic" ||
                 ext == ".dng") &&
                seen.insert(e.path().filename().string()).second)
                photos.push_back(e.path().string());
        }
    std::sort(photos.begin(), photos.end());

    const Pipeline pipeline;
    const std::vector<std::string> peers[] = {
        {"-auto-level"}, {"-auto-gamma"}, {"-auto-level", "-auto-gamma"}};
    struct Sums {
        int n = 0;
        double before = 0, ours = 0, peer[3] = {0, 0, 0};
    };
    std::map<std::string, Sums> table;
    const std::vector<Damage> all = damages();
    for (const std::string& photo : photos) {
        const img::Image original = ImageSource(photo, 1200).previewBase(Adjustments::defaults());
        const std::string stem = fs::path(photo).stem().string();
        const ImageStats s = ImageAnalyzer::stats(*PixelBuffer::make(original, 640));
        const bool wellExposed =
            s.p50 >= 0.3 && s.p50 <= 0.7 && s.p99 > 0.85 && s.clippedHighlights <= 0.02;
        std::printf("%s %dx%d: p50 %.2f p99 %.2f clipped %.3f%s\n", stem.c_str(), original.width(),
                    original.height(), s.p50, s.p99, s.clippedHighlights,
                    wellExposed ? "" : ", not well exposed: left out");
        if (!wellExposed) continue;
        for (size_t d = 0; d < all.size(); ++d) {
            const auto damaged = all[d].apply(original);
            if (!damaged) continue;
            const std::string file = (dir / (stem + "_" + std::to_string(d) + ".tif")).string();
            img::writeTiff16(*damaged, file);

            Sums& sums = table[all[d].name];
            const double before = meanDeltaE(original, readBack(file));
            const double ours = meanDeltaE(original, autoCorrected(file, pipeline));
            double peer[3];
            for (int p = 0; p < 3; ++p) {
                const std::string out =
                    (dir / (stem + "_" + std::to_string(d) + "_im.png")).string();
                std::vector<std::string> command{"convert", file};
                command.insert(command.end(), peers[p].begin(), peers[p].end());
                command.push_back(out);
                peer[p] =
                    bench::spawn(command).status == 0 ? meanDeltaE(original, readBack(out)) : NAN;
            }
            std::printf(
                "  %-20s before %5.2f  ours %5.2f  auto-level %5.2f  auto-gamma %5.2f  both "
                "%5.2f\n",
                all[d].name.c_str(), before, ours, peer[0], peer[1], peer[2]);
            ++sums.n;
            sums.before += before, sums.ours += ours;
            for (int p = 0; p < 3; ++p)
                sums.peer[p] += peer[p];
        }
    }

    std::printf("\nmean CIEDE2000 to the undamaged original, over the photos\n");
    std::printf("%-20s %6s %8s %8s %11s %11s %6s\n", "damage", "photos", "damaged", "ours",
                "auto-level", "auto-gamma", "both");
    bool allReduced = true;
    for (const Damage& d : all) {
        const auto it = table.find(d.name);
        if (it == table.end()) continue;
        const Sums& s = it->second;
        const double n = s.n;
        std::printf("%-20s %6d %8.2f %8.2f %11.2f %11.2f %6.2f\n", d.name.c_str(), s.n,
                    s.before / n, s.ours / n, s.peer[0] / n, s.peer[1] / n, s.peer[2] / n);
        if (d.name != "none" && !(s.ours < s.before)) allReduced = false;
        if (d.name == "none")
            std::printf("%-20s good photos come back with a mean of %.2f (target <= 2)\n", "",
                        s.ours / n);
    }
    std::printf("the correction reduces the error for every damage: %s\n",
                allReduced ? "yes" : "NO");
    return 0;
}
