// Hidden project files of tabs with unsaved work, so a crash or a quit loses nothing.
#pragma once

#include <string>

#include "Uuid.h"

namespace ql::Autosave {

/// <data>/Autosave, created on every call; a failure to create it is ignored.
std::string folder();

/// The tab's file: its id as an upper-case UUID, ".qlproj".
std::string fileFor(const Uuid& workspaceId);

/// Replaces the tab's file atomically with `projectJson`; errors are swallowed.
void write(const Uuid& workspaceId, const std::string& projectJson);

/// Removes the tab's file; errors are swallowed.
void remove(const Uuid& workspaceId);

}  // namespace ql::Autosave
