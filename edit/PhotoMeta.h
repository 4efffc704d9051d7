// What the photographer says about a photo (title, caption, keywords, credits, place, contact),
// written into exported files as IPTC, XMP and EXIF.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Codec.h"

namespace ql {

struct PhotoMeta {
    std::string title;
    std::string caption;
    std::vector<std::string> keywords;
    std::string creator;
    std::string event;
    std::string place;  // the spot within the city
    std::string city;
    std::string headline;
    std::string creatorTitle;  // the creator's job title
    std::string credit;
    std::string source;
    std::string copyright;
    std::string usageTerms;
    std::string instructions;
    std::string country;
    std::string dateCreated;  // as typed: "29/10/2026", "2026-10-29", "10/2026", "1968"
    std::string email;
    std::string phone;
    std::string website;
    std::string jobID;

    bool operator==(const PhotoMeta&) const = default;
    static auto fields() {
        using M = PhotoMeta;
        return std::tuple{field("title", &M::title),
                          field("caption", &M::caption),
                          field("keywords", &M::keywords),
                          field("creator", &M::creator),
                          field("event", &M::event),
                          field("place", &M::place),
                          field("city", &M::city),
                          field("headline", &M::headline),
                          field("creatorTitle", &M::creatorTitle),
                          field("credit", &M::credit),
                          field("source", &M::source),
                          field("copyright", &M::copyright),
                          field("usageTerms", &M::usageTerms),
                          field("instructions", &M::instructions),
                          field("country", &M::country),
                          field("dateCreated", &M::dateCreated),
                          field("email", &M::email),
                          field("phone", &M::phone),
                          field("website", &M::website),
                          field("jobID", &M::jobID)};
    }

    /// True when no field holds anything but white space.
    bool empty() const;

    /// dateCreated as an IPTC date "YYYYMMDD", 00 standing for an unknown month or day. The text
    /// is split at "-", "/" and "."; year first, or day first (the parts reversed) when the first
    /// part is not four characters. The year has four digits within 1800…2200, the month is at
    /// most 12, the day at most 31, every part digits only. Nullopt for anything else.
    std::optional<std::string> iptcDate() const;

    /// Keywords as typed in one line: split at "," and ";", trimmed, blanks dropped, and of the
    /// ones equal but for case (Vietnamese included) only the first, in order.
    static std::vector<std::string> parseKeywords(std::string_view text);
};

}  // namespace ql
