// The interface language and the lookup of its texts.
//
// Vietnamese texts are the keys of the string catalogue; the English side lives in
// resources/Localizable.strings, compiled into the program.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace ql {

enum class AppLanguage { vi, en };

namespace language {

/// The language in force; Vietnamese until startInChosenLanguage() or set() says otherwise.
AppLanguage current();
void set(AppLanguage language);

/// The choice, from the setting `app.language` when it names a language, else from the
/// environment (LANGUAGE, LC_ALL, LC_MESSAGES, LANG, first non-empty). English when that text
/// begins "en", otherwise Vietnamese.
AppLanguage choose(const std::optional<std::string>& setting,
                   const std::function<std::optional<std::string>(const char*)>& environment);

/// Reads the user's setting and the process environment, and makes the result current.
void startInChosenLanguage();

/// The settings key that holds the chosen language ("vi" or "en").
inline constexpr const char* settingKey = "app.language";

}  // namespace language

/// The text for `key` in `language`: the English entry of the catalogue, or the key itself.
std::string localized(std::string_view key, AppLanguage language);
/// The same in the current language.
std::string localized(std::string_view key);

}  // namespace ql
