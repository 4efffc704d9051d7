// Where the application keeps its own files, apart from any photo folder.
#pragma once

#include <string>

namespace ql {

/// $XDG_DATA_HOME/Quillarium, or ~/.local/share/Quillarium when that is unset.
std::string appDataFolder();

}  // namespace ql
