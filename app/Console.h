// Where a headless command writes: standard output and standard error, or a test's streams.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace ql {

struct Console {
    std::ostream& out;
    std::ostream& err;
};

using Arguments = std::vector<std::string>;

/// Exit statuses of the headless commands.
enum ExitStatus : int { exitDone = 0, exitFailed = 1, exitWrongUse = 2 };

}  // namespace ql
