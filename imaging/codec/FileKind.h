// Which decoder a file needs, told by its first bytes rather than its name.
#pragma once

#include <cstdint>
#include <span>

namespace ql::img {

enum class FileKind { unknown, jpeg, png, tiff, heif };

/// The format whose signature starts `head` (16 bytes are enough). TIFF-structured RAW files
/// (DNG, NEF, CR2, ARW, …) also read as tiff: the RAW decoder is asked first for those.
FileKind sniffFileKind(std::span<const uint8_t> head);

}  // namespace ql::img
