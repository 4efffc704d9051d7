// The mark a preset leaves on an edit, so that it can be switched off again.
#pragma once

#include <optional>
#include <string>

#include "Uuid.h"

namespace ql {

struct AppliedPreset {
    Uuid id;  // of the UserPreset
    std::string name;
    bool on = true;
    Bytes before;                // JSON of the edit before the preset was applied
    std::optional<Bytes> after;  // JSON of the edit the preset made

    bool operator==(const AppliedPreset&) const = default;
    static auto fields() {
        using A = AppliedPreset;
        return std::tuple{requiredField("id", &A::id), requiredField("name", &A::name),
                          requiredField("on", &A::on), requiredField("before", &A::before),
                          field("after", &A::after)};
    }
};

}  // namespace ql
