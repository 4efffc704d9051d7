#include "StringsCatalog.h"

namespace ql {
namespace {

class Scanner {
  public:
    explicit Scanner(std::string_view text) : text_(text) {}

    bool atEnd() {
        skipSpaceAndComments();
        return pos_ >= text_.size();
    }
    bool expect(char c) {
        skipSpaceAndComments();
        if (pos_ < text_.size() && text_[pos_] == c) {
            ++pos_;
            return true;
        }
        return fail(std::string("expected '") + c + "'");
    }
    bool quoted(std::string& out) {
        if (!expect('"')) return false;
        out.clear();
        while (pos_ < text_.size()) {
            const char c = text_[pos_++];
            if (c == '"') return true;
            if (c == '\n') ++line_;
            if (c != '\\') {
                out.push_back(c);
                continue;
            }
            if (pos_ >= text_.size()) break;
            const char e = text_[pos_++];
            switch (e) {
                case 'n':
                    out.push_back('\n');
                    break;
                case 't':
                    out.push_back('\t');
                    break;
                case 'r':
                    out.push_back('\r');
                    break;
                case '"':
                    out.push_back('"');
                    break;
                case '\\':
                    out.push_back('\\');
                    break;
                case 'U':
                case 'u':
                    if (!unicodeEscape(out)) return false;
                    break;
                default:
                    return fail(std::string("unknown escape \\") + e);
            }
        }
        return fail("unterminated string");
    }
    bool fail(std::string what) {
        if (error_.empty()) error_ = "line " + std::to_string(line_) + ": " + what;
        return false;
    }
    const std::string& error() const { return error_; }

  private:
    void skipSpaceAndComments() {
        while (pos_ < text_.size()) {
            const char c = text_[pos_];
            if (c == '\n') {
                ++line_;
                ++pos_;
            } else if (c == ' ' || c == '\t' || c == '\r') {
                ++pos_;
            } else if (text_.substr(pos_, 2) == "//") {
                while (pos_ < text_.size() && text_[pos_] != '\n')
                    ++pos_;
            } else if (text_.substr(pos_, 2) == "/*") {
                const size_t end = text_.find("*/", pos_ + 2);
                const size_t stop = end == std::string_view::npos ? text_.size() : end + 2;
                for (size_t i = pos_; i < stop; ++i)
                    if (text_[i] == '\n') ++line_;
                pos_ = stop;
            } else if (text_.substr(pos_, 3) == "\xEF\xBB\xBF") {  // byte order mark
                pos_ += 3;
            } else {
                return;
            }
        }
    }
    bool unicodeEscape(std::string& out) {
        if (pos_ + 4 > text_.size()) return fail("short \\U escape");
        unsigned code = 0;
        for (int i = 0; i < 4; ++i) {
            const char h = text_[pos_++];
            code <<= 4;
            if (h >= '0' && h <= '9')
                code |= unsigned(h - '0');
            else if (h >= 'a' && h <= 'f')
                code |= unsigned(h - 'a' + 10);
            else if (h >= 'A' && h <= 'F')
                code |= unsigned(h - 'A' + 10);
            else
                return fail("bad \\U escape");
        }
        if (code < 0x80) {
            out.push_back(char(code));
        } else if (code < 0x800) {
            out.push_back(char(0xC0 | (code >> 6)));
            out.push_back(char(0x80 | (code & 0x3F)));
        } else {
            out.push_back(char(0xE0 | (code >> 12)));
            out.push_back(char(0x80 | ((code >> 6) & 0x3F)));
            out.push_back(char(0x80 | (code & 0x3F)));
        }
        return true;
    }

    std::string_view text_;
    size_t pos_ = 0;
    int line_ = 1;
    std::string error_;
};

}  // namespace

std::optional<StringsCatalog> StringsCatalog::parse(std::string_view text, std::string* error) {
    StringsCatalog catalog;
    Scanner s(text);
    std::string key, value;
    while (!s.atEnd()) {
        if (!s.quoted(key) || !s.expect('=') || !s.quoted(value) || !s.expect(';')) {
            if (error) *error = s.error();
            return std::nullopt;
        }
        catalog.entries_.insert_or_assign(key, value);
    }
    return catalog;
}

const std::string* StringsCatalog::find(std::string_view key) const {
    const auto it = entries_.find(key);
    return it == entries_.end() ? nullptr : &it->second;
}

}  // namespace ql
