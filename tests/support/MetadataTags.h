// Setting EXIF, IPTC and XMP entries on a file directly through Exiv2, so that tests can make
// sources with exactly the metadata a camera or another program would leave.
#pragma once

#include <exiv2/exiv2.hpp>

#include <string>
#include <utility>
#include <vector>

#include "imaging/codec/Metadata.h"

namespace ql::testing {

using Tags = std::vector<std::pair<std::string, std::string>>;

/// Adds or replaces each entry (by the prefix of its key) in the file at `path`.
inline void setTags(const std::string& path, const Tags& tags) {
    img::Metadata::read(path);  // sets Exiv2 up (silenced, XMP locked) before it is used directly
    auto image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    for (const auto& [key, value] : tags) {
        if (key.starts_with("Exif."))
            image->exifData()[key] = value;
        else if (key.starts_with("Iptc."))
            image->iptcData()[key] = value;
        else
            image->xmpData()[key] = value;
    }
    image->writeMetadata();
}

}  // namespace ql::testing
