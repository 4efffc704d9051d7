// --auto <input> <output> [style]: the Auto command on one photo, optionally with its report.
#pragma once

#include "Console.h"

namespace ql::HeadlessAdvise {

/// `args` is everything after the option. With QL_REPORT set in the environment the diagnosis
/// is printed first.
int runAuto(const Arguments& args, Console& console);

}  // namespace ql::HeadlessAdvise
