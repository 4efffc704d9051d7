// --camera-look <raw> <plain-out> <looked-out> [<camera-out>]: fit the camera's look of one RAW
// file and write the plain picture, the picture under the learnt cube and, if asked, the
// camera's own JPEG, for judging the fit by eye.
#pragma once

#include "Console.h"

namespace ql::HeadlessCameraLook {

/// `args` is everything after the option; at least three paths.
int run(const Arguments& args, Console& console);

}  // namespace ql::HeadlessCameraLook
