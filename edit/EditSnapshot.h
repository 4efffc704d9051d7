// A named copy of a photo's whole edit, kept so the user can go back to it.
#pragma once

#include <chrono>
#include <string>

#include "Adjustments.h"
#include "Uuid.h"

namespace ql {

/// Dates travel as a number of seconds since 2001-01-01 UTC, the form the older files use.
template <>
struct Codec<std::chrono::system_clock::time_point> {
    static bool read(const Json& j, std::chrono::system_clock::time_point& out);
    static OrderedJson write(std::chrono::system_clock::time_point t);
};

struct EditSnapshot {
    Uuid id;
    std::string name;
    std::chrono::system_clock::time_point date;
    Adjustments adjustments;

    bool operator==(const EditSnapshot&) const = default;
    static auto fields() {
        using S = EditSnapshot;
        return std::tuple{requiredField("id", &S::id), requiredField("name", &S::name),
                          requiredField("date", &S::date),
                          requiredField("adjustments", &S::adjustments)};
    }
};

}  // namespace ql
