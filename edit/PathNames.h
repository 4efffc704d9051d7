// The parts of a file path that decide how the engine treats a file.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

namespace ql {

/// The file name without its folder.
inline std::string fileName(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

/// The file name without its folder and its extension ("IMG_0042" of "/card/IMG_0042.CR3").
inline std::string baseName(const std::string& path) {
    return std::filesystem::path(path).stem().string();
}

/// The extension without its dot, in lower case; empty when there is none.
inline std::string lowerExtension(const std::string& path) {
    std::string ext = std::filesystem::path(path).extension().string();
    if (!ext.empty()) ext.erase(0, 1);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

}  // namespace ql
