// Changing a photo's metadata: a working copy of a Metadata, edited by Exiv2 key, that gives a new
// Metadata. Exiv2 stays behind this interface too.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Metadata.h"

namespace ql::img {

/// Not thread-safe: one editor belongs to one thread. Nothing throws; a change Exiv2 cannot make
/// returns false and leaves the copy as it was. Text is UTF-8 up to its first NUL; text that is
/// not valid UTF-8 is refused for IPTC and XMP keys, and for XMP also control characters other
/// than tab and line breaks.
class MetadataEditor {
  public:
    explicit MetadataEditor(const Metadata& source);
    ~MetadataEditor();
    MetadataEditor(const MetadataEditor&) = delete;
    MetadataEditor& operator=(const MetadataEditor&) = delete;

    /// True when an entry has exactly this key
    /// ("Xmp.iptc.CreatorContactInfo/Iptc4xmpCore:CiUrlWork" for a struct field).
    bool has(std::string_view key) const;
    /// True when some entry's key starts with `prefix` ("Exif.Image.").
    bool hasAny(std::string_view prefix) const;

    /// Sets one value, replacing every entry with the key: EXIF in the tag's own type (text for
    /// Ascii tags, "72/1" for rationals), an IPTC dataset cut at a character boundary to its
    /// largest size (dates as "YYYYMMDD" or "YYYY-MM-DD", 00 for an unknown month or day), XMP
    /// text; an XMP language alternative gets its x-default entry (other languages stay), an XMP
    /// array a single item. Empty text removes the key. False for a key Exiv2 does not know, a
    /// value the type cannot hold, or a struct field whose struct is missing (see setStructField).
    bool setText(std::string_view key, std::string_view utf8);
    /// Replaces a repeatable IPTC dataset (Iptc.Application2.Keywords) with one entry per value,
    /// or an XMP array (Xmp.dc.subject; a property Exiv2 has no type for becomes a bag) with these
    /// items. Empty values are skipped; none left removes the key. False for EXIF, for several
    /// values of a dataset that is not repeatable and for XMP properties that are not arrays.
    bool setTexts(std::string_view key, const std::vector<std::string>& values);
    /// Sets the field `fieldKey` ("Iptc4xmpCore:CiEmailWork") of the XMP struct `structKey`
    /// ("Xmp.iptc.CreatorContactInfo"), making the struct when it is missing. False when
    /// `structKey` holds a value that is not a struct.
    bool setStructField(std::string_view structKey, std::string_view fieldKey,
                        std::string_view utf8);

    /// Removes every entry with the key and, for an XMP struct or array, its members.
    void remove(std::string_view key);
    /// Removes the entries whose key `drop` accepts.
    void removeIf(const std::function<bool(std::string_view key)>& drop);
    /// Removes what an export never carries over (see Metadata::exifApp1): maker notes, the
    /// thumbnail, the source's structure, DNG and raw-processing tags, another converter's
    /// settings in XMP.
    void removeSourceOnly();

    /// The edited metadata; empty when no entry is left.
    Metadata result() const;

  private:
    std::unique_ptr<detail::MetadataStore> d_;
};

}  // namespace ql::img
