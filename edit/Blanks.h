// Trimming of the blanks around names, templates and metadata fields.
#pragma once

#include <string_view>

namespace ql {

inline constexpr std::string_view kBlanks = " \t\r\n\v\f";

/// `text` without the blanks at either end.
inline std::string_view trimmedBlanks(std::string_view text) {
    const size_t b = text.find_first_not_of(kBlanks);
    if (b == std::string_view::npos) return {};
    return text.substr(b, text.find_last_not_of(kBlanks) - b + 1);
}

}  // namespace ql
