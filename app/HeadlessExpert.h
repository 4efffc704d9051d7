// --expert <output-folder> <file>...: the expert editor over a shoot, moment by moment.
#pragma once

#include "Console.h"

namespace ql::HeadlessExpert {

/// `args` is everything after the option. Photos that can't be opened or analysed are skipped.
int run(const Arguments& args, Console& console);

}  // namespace ql::HeadlessExpert
