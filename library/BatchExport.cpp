#include "BatchExport.h"

#include <filesystem>

#include "edit/Blanks.h"
#include "edit/PathNames.h"
#include "render/Exporter.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"

namespace ql {

namespace {

namespace fs = std::filesystem;

// Batch exports read the full picture; the proxy is never shown, so it is kept small.
constexpr int kBatchPreviewLongEdge = 1200;

struct Target {
    ExportOptions options;
    std::optional<Watermark> watermark;
    std::string copyright;
    std::string folder;
    std::string stem;
};

// Runs the loop: `targets` gives, for the photo at index i, what to write for it.
void runBatch(const std::vector<std::string>& urls, const EditSource& edits, BatchJob& job,
              const std::function<std::vector<Target>(const std::string& url, size_t index,
                                                      const ImageSource&)>& targets) {
    const Pipeline pipeline;
    for (size_t i = 0; i < urls.size(); ++i) {
        if (job.cancelFlag().isCancelled()) break;
        const std::string& url = urls[i];
        const QString name = QString::fromStdString(fileName(url));
        bool failed = false;
        try {
            ImageSource source(url, kBatchPreviewLongEdge);
            const Adjustments adjustments =
                edits.adjustments ? edits.adjustments(url) : Adjustments{};
            const std::optional<PhotoMeta> meta = edits.meta ? edits.meta(url) : std::nullopt;
            for (const Target& t : targets(url, i, source)) {
                const std::string to = freePath(t.folder, t.stem, fileExtension(t.options.format));
                try {
                    Exporter::exportImage(source, adjustments, pipeline, t.options, to, t.watermark,
                                          t.copyright, meta);
                } catch (const std::exception& e) {
                    failed = true;
                    job.postLog(name + ": " + QString::fromUtf8(e.what()));
                }
            }
        } catch (const std::exception& e) {
            failed = true;
            job.postLog(name + ": " + QString::fromUtf8(e.what()));
        }
        job.postDone(failed ? name : QString());
    }
    job.postFinished();
}

}  // namespace

QString exportJobTitle(int count) {
    return QStringLiteral("Xuất %1 ảnh").arg(count);
}

std::string freePath(const std::string& folder, const std::string& stem,
                     std::string_view extension) {
    const std::string dot = "." + std::string(extension);
    const fs::path dir(folder);
    fs::path candidate = dir / (stem + dot);
    std::error_code ec;
    for (int n = 2; fs::exists(fs::symlink_status(candidate, ec)); ++n)
        candidate = dir / (stem + "-" + std::to_string(n) + dot);
    return candidate.string();
}

void exportWithRecipes(const std::vector<std::string>& urls,
                       const std::vector<ExportRecipe>& recipes, const std::string& destination,
                       const std::string& project, const EditSource& edits, BatchJob& job) {
    std::vector<ExportRecipe> enabled;
    for (const auto& r : recipes)
        if (r.enabled) enabled.push_back(r);
    runBatch(
        urls, edits, job, [&](const std::string& url, size_t index, const ImageSource& source) {
            std::vector<Target> targets;
            for (const auto& r : enabled) {
                const std::string sub(trimmedBlanks(r.subfolder));
                const std::string folder =
                    sub.empty() ? destination : (fs::path(destination) / sub).string();
                std::error_code ec;
                fs::create_directories(folder, ec);  // a failure shows when the export can't write
                targets.push_back({r.options,
                                   r.useWatermark ? std::optional(r.watermark) : std::nullopt,
                                   r.copyright, folder,
                                   r.fileName(url, int(index) + 1, source.captureDate(), project)});
            }
            return targets;
        });
}

void batchExport(const std::vector<std::string>& urls, const std::string& destination,
                 const ExportOptions& options, const EditSource& edits, BatchJob& job) {
    runBatch(urls, edits, job, [&](const std::string& url, size_t, const ImageSource&) {
        return std::vector<Target>{{options, std::nullopt, {}, destination, baseName(url)}};
    });
}

}  // namespace ql
