#include "HeadlessAuto.h"

#include <cstdio>
#include <cstdlib>

#include "analysis/AutoResult.h"
#include "analysis/Diagnosis.h"
#include "analysis/PhotoAnalyzer.h"
#include "analysis/Suggestion.h"
#include "edit/PathNames.h"
#include "render/Exporter.h"

namespace ql::HeadlessAdvise {
namespace {

void printReport(const PhotoAnalysis& analysis, const PhotoFacts& facts, Console& console) {
    const PhotoReport report = Diagnosis::make(analysis, facts);
    char sharp[32];
    std::snprintf(sharp, sizeof sharp, "%.3f", analysis.stats.sharpness);
    console.out << "score " << report.score << " — " << report.verdict << "  sharp=" << sharp
                << " faces=" << analysis.stats.faces.size() << "\n";
    for (const Finding& f : report.findings) {
        const char* mark = f.status == Finding::Status::good   ? "ok"
                           : f.status == Finding::Status::warn ? "!"
                                                               : "!!";
        console.out << "  [" << mark << "] " << f.title << ": " << f.detail;
        if (f.fix) console.out << " → " << *f.fix;
        console.out << "\n";
    }
    console.out << "  colours:";
    for (size_t i = 0; i < report.colors.size(); ++i)
        console.out << (i ? ", " : " ") << report.colors[i].name << " "
                    << int(report.colors[i].share * 100) << "%";
    console.out << "\n";
}

}  // namespace

int runAuto(const Arguments& args, Console& console) {
    try {
        ImageSource source(args[0], 2400);
        const Pipeline pipeline;
        PhotoAnalyzer analyzer(pipeline);
        const auto analysis = analyzer.analysis(source, false);
        if (!analysis) return exitFailed;
        const PhotoFacts facts = PhotoFacts::of(source);
        if (std::getenv("QL_REPORT")) printReport(*analysis, facts, console);

        Adjustments base;
        if (args.size() >= 3) base.style = enumFromName<PhotoStyle>(args[2]);
        const Adjustments result = autoResult(base, *analysis, facts);

        char line[160];
        std::snprintf(line, sizeof line,
                      "asShot %.0fK/%.0f measured-neutral %.0fK/%.0f p50 %.2f p99 %.2f clip %.3f\n",
                      facts.asShotTemperature, facts.asShotTint, analysis->neutralTemperature,
                      analysis->neutralTint, analysis->stats.p50, analysis->stats.p99,
                      analysis->stats.clippedHighlights);
        console.out << line << fileName(args[0]) << " ";
        const auto list = changes(base, result, facts.isRAW);
        for (size_t i = 0; i < list.size(); ++i)
            console.out << (i ? ", " : "") << list[i].label << " " << list[i].to;
        console.out << "\n";

        const ExportOptions options{ExportFormat::jpeg, 92, true, 700};
        Exporter::exportImage(source, result, pipeline, options, args[1], std::nullopt, {},
                              PhotoMeta{});
        return exitDone;
    } catch (const std::exception&) {
        return exitFailed;  // unreadable photo or failed export: the status says it
    }
}

}  // namespace ql::HeadlessAdvise
