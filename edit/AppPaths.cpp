#include "AppPaths.h"

#include <cstdlib>

namespace ql {

std::string appDataFolder() {
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && *data == '/') return std::string(data) + "/Quillarium";
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/.local/share/Quillarium";
}

}  // namespace ql
