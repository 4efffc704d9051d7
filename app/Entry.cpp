#include "Entry.h"

#include <algorithm>
#include <array>
#include <iostream>

#include "HeadlessAuto.h"
#include "HeadlessCameraLook.h"
#include "HeadlessExpert.h"
#include "HeadlessHorizon.h"
#include "HeadlessRender.h"
#include "edit/AppLanguage.h"

namespace ql::Entry {
namespace {

int runAdvise(const Arguments& args, Console& console) {
    if (args.empty()) return exitWrongUse;  // bench use only: no message
    console.err << "--advise: the photo advisor is not built yet\n";
    return exitFailed;
}

constexpr std::array<Option, 11> table{{
    {"--render", "<input> <output> [adjustments.json]", 0, HeadlessRender::run, {}},
    {"--advise", "<input> [output]", 0, runAdvise, {}},
    {"--auto", "<input> <output> [style]", 2, HeadlessAdvise::runAuto, {}},
    {"--camera-look",
     "<raw> <plain-out> <looked-out> [<camera-out>]",
     3,
     HeadlessCameraLook::run,
     {}},
    {"--share", "<file>...", 0, nullptr, "the gallery server"},
    {"--faces", "<reference> <face-index> <file>...", 2, nullptr, "face search"},
    {"--cull", "<file>...", 0, nullptr, "culling"},
    {"--expert", "<output-folder> <file>...", 1, HeadlessExpert::run, {}},
    {"--agent", "<input> <output> <brief> [engine]", 3, nullptr, "the agent desk"},
    {"--download-model", "<model-id>", 1, nullptr, "the model store"},
    {"--horizon", "<image> <degrees>", 2, HeadlessHorizon::run, {}},
}};

int startApplication(Console& console) {
    console.out << "Quillarium: the application window is not built yet; "
                   "the headless commands run from the command line\n";
    return exitDone;
}

}  // namespace

std::span<const Option> options() {
    return table;
}

std::optional<Match> match(const Arguments& argv) {
    for (const Option& option : table) {
        const auto it = std::find(argv.begin(), argv.end(), option.flag);
        if (it != argv.end()) return Match{&option, static_cast<size_t>(it - argv.begin())};
    }
    return std::nullopt;
}

int run(const Arguments& argv, Console& console) {
    const auto found = match(argv);
    if (!found) return startApplication(console);

    const Option& option = *found->option;
    const Arguments args(argv.begin() + static_cast<std::ptrdiff_t>(found->position) + 1,
                         argv.end());
    if (static_cast<int>(args.size()) < option.mandatory) {
        console.err << "fatal: " << option.flag << " needs " << option.arguments << "\n";
        return exitWrongUse;
    }
    if (!option.run) {
        console.err << option.flag << ": " << option.lacks << " is not built yet\n";
        return exitFailed;
    }
    return option.run(args, console);
}

int main(int argc, char** argv) {
    Arguments arguments(argv, argv + argc);
    language::startInChosenLanguage();
    Console console{std::cout, std::cerr};
    const int status = run(arguments, console);
    std::cout.flush();
    return status;
}

}  // namespace ql::Entry
