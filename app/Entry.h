// The process entry: one headless command run to its end, or the application.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "Console.h"

namespace ql::Entry {

struct Option {
    std::string_view flag;
    std::string_view arguments;  // positional arguments, as the usage shows them
    int mandatory;               // how many positional arguments must follow
    int (*run)(const Arguments& args, Console& console);  // null while the command is unbuilt
    std::string_view lacks;                               // what an unbuilt command is waiting for
};

/// The options in the order they are scanned; the first one present wins.
std::span<const Option> options();

struct Match {
    const Option* option;
    size_t position;  // index of its first occurrence in the argument list
};

/// Scans for each option in table order over the whole list, program path included, by exact
/// string equality. No other parsing happens.
std::optional<Match> match(const Arguments& argv);

/// Runs what the arguments ask for and returns the exit status.
int run(const Arguments& argv, Console& console);

/// The process entry point: chooses the language, then runs.
int main(int argc, char** argv);

}  // namespace ql::Entry
