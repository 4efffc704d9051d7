#include "HeadlessExpert.h"

#include <cstdio>
#include <filesystem>
#include <memory>

#include "analysis/Expert.h"
#include "analysis/PhotoAnalyzer.h"
#include "edit/PathNames.h"
#include "render/Exporter.h"

namespace ql::HeadlessExpert {

int run(const Arguments& args, Console& console) {
    const std::filesystem::path folder = args[0];
    const Pipeline pipeline;
    const ExpertOptions options;
    const ExportOptions exportOptions{ExportFormat::jpeg, 92, true, 700};

    const std::vector<std::string> files(args.begin() + 1, args.end());
    for (const auto& moment : Expert::moments(files, std::chrono::seconds(120))) {
        std::vector<std::unique_ptr<ImageSource>> sources;
        std::vector<ExpertPlan> plans;
        for (const std::string& file : moment) {
            try {
                auto source = std::make_unique<ImageSource>(file, 2400);
                PhotoAnalyzer analyzer(pipeline);
                const auto analysis = analyzer.analysis(*source, false);
                if (!analysis) continue;
                auto planned = Expert::plan(*source, *analysis, std::nullopt, options);
                if (auto* p = std::get_if<ExpertPlan>(&planned)) {
                    plans.push_back(std::move(*p));
                    sources.push_back(std::move(source));
                }
            } catch (const std::exception&) {
                // An unreadable file is skipped; the rest of the shoot goes on.
            }
        }
        Expert::harmonize(plans);
        for (size_t i = 0; i < plans.size(); ++i) {
            const ExpertPlan& plan = plans[i];
            std::string output;
            try {
                const Adjustments edit = Expert::finish(plan, *sources[i], pipeline, options);
                const ImageStats& s = plan.analysis.stats;
                char facts[96];
                std::snprintf(facts, sizeof facts,
                              " [lean %.1f conf %.1f sky %.2f]: ", s.lean.value_or(0),
                              s.leanConfidence, s.sky);
                console.out << fileName(plan.url) << facts << edit.expertNote.value_or("") << "\n"
                            << std::flush;
                Exporter::exportImage(*sources[i], edit, pipeline, exportOptions,
                                      (folder / (baseName(plan.url) + ".jpg")).string(),
                                      std::nullopt, {}, PhotoMeta{});
            } catch (const std::exception&) {
                // A failed export is dropped, as is one photo's failure to render.
            }
            sources[i].reset();  // its proxy and people are no longer needed
        }
    }
    return exitDone;
}

}  // namespace ql::HeadlessExpert
