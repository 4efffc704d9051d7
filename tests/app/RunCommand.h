// Running a command line through the entry point in-process, with its output captured.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "app/Entry.h"

namespace ql::testing {

struct Outcome {
    int status;
    std::string out, err;
};

/// `argv` as the process would see it, the program's own name first.
inline Outcome runCommand(const std::vector<std::string>& argv) {
    std::ostringstream out, err;
    Console console{out, err};
    const int status = Entry::run(argv, console);
    return {status, out.str(), err.str()};
}

}  // namespace ql::testing
