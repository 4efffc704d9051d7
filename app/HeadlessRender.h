// --render <input> <output> [adjustments.json]: decode a photo, apply an edit, write a file.
#pragma once

#include <optional>
#include <string>

#include "Console.h"
#include "edit/Adjustments.h"

namespace ql::HeadlessRender {

/// `args` is everything after the option.
int run(const Arguments& args, Console& console);

/// Reads and decodes an adjustments file; nothing, with a description in `error`, when the file
/// can't be read, is too large, or holds no JSON object.
std::optional<Adjustments> readAdjustments(const std::string& path, std::string& error);

}  // namespace ql::HeadlessRender
