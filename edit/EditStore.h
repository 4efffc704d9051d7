// The older per-photo edit files in the application's data folder. Nothing writes them any more;
// they are read once, taken into a project, and moved aside.
#pragma once

#include <optional>
#include <string>

#include "Adjustments.h"

namespace ql::EditStore {

/// The photo's path made absolute, without "." and ".." parts or doubled separators; symlinks are
/// left as they are. The key of a photo in every store.
std::string standardPath(const std::string& path);

/// <data>/Edits, created on every call; a failure to create it is ignored.
std::string folder();

/// The photo's older edit file: the SHA-256 of its standard path in lower-case hex, ".json".
std::string file(const std::string& path);

/// <data>/Edits (da chuyen vao du an), where files go once a project holds their edits; created.
std::string retiredFolder();

/// The photo's older edit, or nothing when there is no file or it does not decode.
std::optional<Adjustments> read(const std::string& path);

/// Moves the photo's older file, if any, into the retired folder, replacing a file of that name.
/// Errors are swallowed.
void retire(const std::string& path);

}  // namespace ql::EditStore
