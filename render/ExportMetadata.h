// The metadata an exported file carries: the source's, less what only fits the source, plus the
// program's name, the recipe's copyright and the photographer's description.
#pragma once

#include <string_view>

#include "edit/PhotoMeta.h"
#include "imaging/codec/Metadata.h"
#include "imaging/codec/MetadataEditor.h"

namespace ql {

/// Writes the fields of `meta` that are not blank into `into`, as IPTC datasets (cut to their
/// IIM sizes, the character set marked UTF-8), their XMP counterparts, and for caption, creator
/// and copyright the TIFF description, artist and copyright. Blank fields leave what is there;
/// the headline falls back to the event.
void write(const PhotoMeta& meta, img::MetadataEditor& into);

/// The metadata to write with an export of the photo whose metadata is `source`: "Quillarium" as
/// the software where the source has a first IFD; `copyright`, trimmed, as the EXIF, IPTC and
/// XMP copyright unless blank; then `meta` when given, overruling the copyright; without maker
/// notes, DNG and raw-processing tags or another converter's settings.
img::Metadata exportProperties(const img::Metadata& source, std::string_view copyright,
                               const PhotoMeta* meta);

}  // namespace ql
