#include "PhotoMeta.h"

#include "Blanks.h"

#include <QString>

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace ql {

namespace {

bool blank(std::string_view s) {
    return trimmedBlanks(s).empty();
}

std::optional<int> digitsValue(std::string_view s) {
    if (s.empty() || !std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    int v = 0;
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
    return v;
}

}  // namespace

bool PhotoMeta::empty() const {
    bool none = std::all_of(keywords.begin(), keywords.end(), blank);
    std::apply(
        [&](const auto&... f) {
            const auto check = [&](const auto& member) {
                if constexpr (std::is_same_v<std::decay_t<decltype(member)>, std::string>)
                    none = none && blank(member);
            };
            (check(this->*(f.member)), ...);
        },
        fields());
    return none;
}

std::optional<std::string> PhotoMeta::iptcDate() const {
    std::vector<std::string_view> parts;
    std::string_view rest = trimmedBlanks(dateCreated);
    if (rest.empty()) return std::nullopt;
    while (true) {
        const size_t cut = rest.find_first_of("-/.");
        parts.push_back(rest.substr(0, cut));
        if (cut == std::string_view::npos) break;
        rest.remove_prefix(cut + 1);
        if (parts.size() == 3) return std::nullopt;
    }
    if (parts.front().size() != 4) std::reverse(parts.begin(), parts.end());
    if (parts.front().size() != 4) return std::nullopt;
    int ymd[3] = {};
    for (size_t i = 0; i < parts.size(); ++i) {
        const auto v = digitsValue(parts[i]);
        if (!v) return std::nullopt;
        ymd[i] = *v;
    }
    if (ymd[0] < 1800 || ymd[0] > 2200 || ymd[1] > 12 || ymd[2] > 31) return std::nullopt;
    char out[32];
    std::snprintf(out, sizeof out, "%04d%02d%02d", ymd[0], ymd[1], ymd[2]);
    return std::string(out);
}

std::vector<std::string> PhotoMeta::parseKeywords(std::string_view text) {
    std::vector<std::string> out;
    std::vector<QString> seen;  // composed and case-folded, so "Việt" and "VIỆT" meet
    while (!text.empty()) {
        const size_t cut = text.find_first_of(",;");
        const std::string_view piece = text.substr(0, cut);
        text = cut == std::string_view::npos ? std::string_view() : text.substr(cut + 1);
        const QString word = QString::fromUtf8(piece.data(), qsizetype(piece.size())).trimmed();
        if (word.isEmpty()) continue;
        const QString key = word.normalized(QString::NormalizationForm_C).toCaseFolded();
        if (std::find(seen.begin(), seen.end(), key) != seen.end()) continue;
        seen.push_back(key);
        out.push_back(word.toStdString());
    }
    return out;
}

}  // namespace ql
