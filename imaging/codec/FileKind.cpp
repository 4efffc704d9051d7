#include "FileKind.h"

#include <cstring>

namespace ql::img {

FileKind sniffFileKind(std::span<const uint8_t> h) {
    const auto starts = [&](const char* sig, size_t n, size_t at = 0) {
        return h.size() >= at + n && std::memcmp(h.data() + at, sig, n) == 0;
    };
    if (starts("\xFF\xD8\xFF", 3)) return FileKind::jpeg;
    if (starts("\x89PNG\r\n\x1A\n", 8)) return FileKind::png;
    if (starts("II*\0", 4) || starts("MM\0*", 4) || starts("II+\0", 4) || starts("MM\0+", 4))
        return FileKind::tiff;
    // ISO base media: a 'ftyp' box whose brand is one of the HEIF still-image brands.
    if (starts("ftyp", 4, 4)) {
        static const char* const brands[] = {"heic", "heix", "heim", "heis", "hevc",
                                             "hevx", "mif1", "msf1", "avif"};
        for (const char* b : brands)
            if (starts(b, 4, 8)) return FileKind::heif;
    }
    return FileKind::unknown;
}

}  // namespace ql::img
