// --horizon <image> <degrees>: tilts a photo by a known angle and prints what the level finder
// proposes, so the finder can be measured on real pictures.
#pragma once

#include "Console.h"

namespace ql::HeadlessHorizon {

/// `args` is everything after the option: the image, then the tilt in degrees (0 when it is not
/// a number). Prints "tilted <degrees> -> suggested <angle>" with both numbers in printf's %g
/// form, or "nil" for the angle when the finder proposes none. A file that can't be opened is a
/// fatal error.
int run(const Arguments& args, Console& console);

}  // namespace ql::HeadlessHorizon
