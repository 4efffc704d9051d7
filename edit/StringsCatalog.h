// A parser for string catalogues in the "key" = "value"; format.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace ql {

class StringsCatalog {
  public:
    /// Parses catalogue text: entries `"key" = "value";`, comments `/* */` and `//`, escapes
    /// \" \\ \n \t \r and \U followed by four hex digits. Returns nothing on malformed text, with
    /// a description (and the line) in `error`.
    static std::optional<StringsCatalog> parse(std::string_view text, std::string* error = nullptr);

    /// The value for `key`, if the catalogue has one.
    const std::string* find(std::string_view key) const;
    size_t size() const { return entries_.size(); }
    const std::map<std::string, std::string, std::less<>>& entries() const { return entries_; }

  private:
    std::map<std::string, std::string, std::less<>> entries_;
};

}  // namespace ql
