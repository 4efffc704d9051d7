// A photo's metadata (EXIF, IPTC, XMP), read through Exiv2 and kept whole so that an export can
// carry it over. Exiv2 stays behind this interface.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ql::img {

namespace detail {
struct MetadataStore;
}

/// Immutable; copies share one store, and every member may be called from any thread.
class Metadata {
  public:
    /// No metadata.
    Metadata() = default;

    /// The metadata of the file at `path`: JPEG, PNG, TIFF, WebP, HEIF and the RAW formats (DNG,
    /// CR2, CR3, NEF, ARW, ...). Reads metadata only, never pixels. Never throws: a file that is
    /// missing, not a regular file, not an image, a video, or corrupt gives an empty Metadata.
    static Metadata read(const std::string& path);
    /// The same for a whole file held in memory.
    static Metadata fromBytes(const uint8_t* data, size_t size);

    /// True when there is no EXIF, IPTC or XMP entry.
    bool empty() const;

    /// The value under an Exiv2 key ("Exif.Image.Model", "Iptc.Application2.Caption",
    /// "Xmp.dc.title") as stored, cut at the first NUL and trimmed. Nullopt when the key is absent,
    /// unknown to Exiv2 or the text is empty.
    std::optional<std::string> text(std::string_view key) const;
    /// Exiv2's readable form of the value: words for codes ("Multi-segment"), lens names decoded
    /// from maker notes, units. Nullopt as for text().
    std::optional<std::string> interpreted(std::string_view key) const;
    /// Component `index` of the value as a number; rationals are evaluated, text such as "28/10"
    /// or "2.8" is parsed. Nullopt when absent, not numeric or not finite (x/0).
    std::optional<double> number(std::string_view key, size_t index = 0) const;
    /// The first component when it is a whole number.
    std::optional<long> integer(std::string_view key) const;
    /// Exif.Image.Orientation when it is 1..8, otherwise 1.
    int orientation() const;

    /// Every entry as key and readable value: EXIF, then IPTC, then XMP, each in file order.
    /// Binary blobs over 256 bytes read "(N bytes)"; values are cut to 256 characters.
    std::vector<std::pair<std::string, std::string>> entries() const;

    /// The EXIF for a new JPEG of width x height: "Exif\0\0" and a TIFF structure, ready to be the
    /// body of an APP1 segment (at most 65533 bytes). Orientation becomes 1, PixelXDimension and
    /// PixelYDimension the new size, each only where the source has it: none is added (the
    /// dimensions stay as they were when the size is not positive). Dropped: the maker notes, the
    /// thumbnail (it shows the unedited picture), the source's image-structure, DNG and
    /// raw-processing tags and its colour profile; then, only when needed to fit, the largest
    /// entries (Exiv2 leaves out single oversized ones). Empty when there is no EXIF or it cannot
    /// be encoded.
    std::vector<uint8_t> exifApp1(int width, int height) const;

    /// Writes this metadata into the existing image file at `path` (JPEG, PNG, TIFF; also other
    /// formats Exiv2 writes), in place: EXIF prepared as for exifApp1 (the 64 KiB limit applies to
    /// JPEG only; PNG gets an eXIf chunk), IPTC, and XMP with tiff:Orientation 1, the new pixel
    /// dimensions and no other raw converter's settings. Entries already in the file are kept
    /// unless this metadata has the same key, so the file's own structure and colour profile stay.
    /// Nothing is written when this is empty. Returns false, with the reason in `error`, on
    /// failure.
    bool writeInto(const std::string& path, int width, int height,
                   std::string* error = nullptr) const;

  private:
    friend class MetadataEditor;
    explicit Metadata(std::shared_ptr<const detail::MetadataStore> store) : d_(std::move(store)) {}
    std::shared_ptr<const detail::MetadataStore> d_;
};

}  // namespace ql::img
