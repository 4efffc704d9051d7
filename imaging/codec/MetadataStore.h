// What Metadata and MetadataEditor share behind their Exiv2-free headers. Only for imaging/codec.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include <exiv2/exiv2.hpp>

namespace ql::img::detail {

struct MetadataStore {
    Exiv2::ExifData exif;
    Exiv2::IptcData iptc;
    Exiv2::XmpData xmp;
    Exiv2::ByteOrder byteOrder = Exiv2::littleEndian;
    // Exiv2 values keep conversion state in mutable members: even reads must not overlap.
    mutable std::mutex mutex;

    bool empty() const { return exif.empty() && iptc.empty() && xmp.empty(); }

    // Exiv2's typed keys throw on names they do not know; those simply are not here.
    const Exiv2::Metadatum* find(std::string_view name) const {
        const std::string key(name);
        try {
            if (key.starts_with("Exif.")) {
                const auto it = exif.findKey(Exiv2::ExifKey(key));
                if (it != exif.end()) return &*it;
            } else if (key.starts_with("Iptc.")) {
                const auto it = iptc.findKey(Exiv2::IptcKey(key));
                if (it != iptc.end()) return &*it;
            } else if (key.starts_with("Xmp.")) {
                const auto it = xmp.findKey(Exiv2::XmpKey(key));
                if (it != xmp.end()) return &*it;
            }
        } catch (...) {
        }
        return nullptr;
    }
};

/// Exiv2's global state, set once before any thread parses or writes.
void initExiv2();

/// The EXIF and XMP an export carries over: not the maker notes, the thumbnail, nor the tags that
/// describe the source file's own pixels, encoding or raw processing.
bool keepForExport(const Exiv2::Exifdatum& d);
bool keepForExport(const Exiv2::Xmpdatum& d);

}  // namespace ql::img::detail
