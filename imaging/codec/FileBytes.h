// Whole-file reads for the decoders that work from memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace ql::img {

/// The file's bytes. Throws DecodeError for a missing file, a folder, an unreadable file or one
/// larger than `limit` bytes.
std::vector<uint8_t> readFileBytes(const std::string& path, uint64_t limit = uint64_t(4) << 30);

}  // namespace ql::img
