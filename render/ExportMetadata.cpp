#include "ExportMetadata.h"

#include "edit/Blanks.h"

#include <string>
#include <vector>

namespace ql {

namespace {

// ISO 8859 escape sequence for UTF-8: without it readers take IIM text as Latin-1 or ASCII.
void markIptcUtf8(img::MetadataEditor& into) {
    into.setText("Iptc.Envelope.CharacterSet", "\x1b%G");
}

// "YYYYMMDD" with 00 for the unknown as XMP has it: "YYYY-MM-DD", "YYYY-MM" or "YYYY".
std::string xmpDate(const std::string& iptc) {
    std::string out = iptc.substr(0, 4);
    for (size_t at = 4; at < 8 && iptc.compare(at, 2, "00") != 0; at += 2)
        out.append(1, '-').append(iptc, at, 2);
    return out;
}

// The IIM dataset and the XMP property of one field (IPTC Photo Metadata mapping), so that readers
// preferring either agree.
struct Mapping {
    std::string PhotoMeta::*field;
    const char* iptc;  // null where the IIM has no dataset
    const char* xmp;
};

const Mapping kMappings[] = {
    {&PhotoMeta::title, "Iptc.Application2.ObjectName", "Xmp.dc.title"},
    {&PhotoMeta::caption, "Iptc.Application2.Caption", "Xmp.dc.description"},
    {&PhotoMeta::creator, "Iptc.Application2.Byline", "Xmp.dc.creator"},
    {&PhotoMeta::creatorTitle, "Iptc.Application2.BylineTitle", "Xmp.photoshop.AuthorsPosition"},
    {&PhotoMeta::credit, "Iptc.Application2.Credit", "Xmp.photoshop.Credit"},
    {&PhotoMeta::source, "Iptc.Application2.Source", "Xmp.photoshop.Source"},
    {&PhotoMeta::copyright, "Iptc.Application2.Copyright", "Xmp.dc.rights"},
    {&PhotoMeta::usageTerms, nullptr, "Xmp.xmpRights.UsageTerms"},
    {&PhotoMeta::instructions, "Iptc.Application2.SpecialInstructions",
     "Xmp.photoshop.Instructions"},
    {&PhotoMeta::place, "Iptc.Application2.SubLocation", "Xmp.iptc.Location"},
    {&PhotoMeta::city, "Iptc.Application2.City", "Xmp.photoshop.City"},
    {&PhotoMeta::country, "Iptc.Application2.CountryName", "Xmp.photoshop.Country"},
    {&PhotoMeta::jobID, "Iptc.Application2.TransmissionReference",
     "Xmp.photoshop.TransmissionReference"},
};

const std::pair<std::string PhotoMeta::*, const char*> kContact[] = {
    {&PhotoMeta::email, "Iptc4xmpCore:CiEmailWork"},
    {&PhotoMeta::phone, "Iptc4xmpCore:CiTelWork"},
    {&PhotoMeta::website, "Iptc4xmpCore:CiUrlWork"},
};

// TIFF's own tags, which many viewers show before any IPTC or XMP.
const std::pair<std::string PhotoMeta::*, const char*> kTiff[] = {
    {&PhotoMeta::caption, "Exif.Image.ImageDescription"},
    {&PhotoMeta::creator, "Exif.Image.Artist"},
    {&PhotoMeta::copyright, "Exif.Image.Copyright"},
};

}  // namespace

void write(const PhotoMeta& meta, img::MetadataEditor& into) {
    bool iptc = false;
    const auto put = [&](std::string_view value, const char* iptcKey, const char* xmpKey) {
        const std::string_view text = trimmedBlanks(value);
        if (text.empty()) return;
        if (iptcKey && into.setText(iptcKey, text)) iptc = true;
        into.setText(xmpKey, text);
    };
    for (const auto& m : kMappings)
        put(meta.*m.field, m.iptc, m.xmp);
    put(trimmedBlanks(meta.headline).empty() ? meta.event : meta.headline,
        "Iptc.Application2.Headline", "Xmp.photoshop.Headline");
    if (const auto date = meta.iptcDate()) {
        if (into.setText("Iptc.Application2.DateCreated", *date)) iptc = true;
        into.setText("Xmp.photoshop.DateCreated", xmpDate(*date));
    }
    std::vector<std::string> keywords;
    for (const auto& k : meta.keywords)
        if (const auto word = trimmedBlanks(k); !word.empty()) keywords.emplace_back(word);
    if (!keywords.empty()) {
        if (into.setTexts("Iptc.Application2.Keywords", keywords)) iptc = true;
        into.setTexts("Xmp.dc.subject", keywords);
    }
    for (const auto& [field, key] : kContact)
        if (const auto text = trimmedBlanks(meta.*field); !text.empty())
            into.setStructField("Xmp.iptc.CreatorContactInfo", key, text);
    for (const auto& [field, key] : kTiff)
        if (const auto text = trimmedBlanks(meta.*field); !text.empty()) into.setText(key, text);
    if (iptc) markIptcUtf8(into);
}

img::Metadata exportProperties(const img::Metadata& source, std::string_view copyright,
                               const PhotoMeta* meta) {
    img::MetadataEditor editor(source);
    // Only a file that has a first IFD names its software; none is made up for that alone.
    if (editor.hasAny("Exif.Image.")) editor.setText("Exif.Image.Software", "Quillarium");
    if (const auto text = trimmedBlanks(copyright); !text.empty()) {
        editor.setText("Exif.Image.Copyright", text);
        if (editor.setText("Iptc.Application2.Copyright", text)) markIptcUtf8(editor);
        editor.setText("Xmp.dc.rights", text);
    }
    if (meta) write(*meta, editor);
    editor.removeSourceOnly();
    return editor.result();
}

}  // namespace ql
