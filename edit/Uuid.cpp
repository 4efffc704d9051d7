#include "Uuid.h"

#include <QByteArray>
#include <QUuid>

namespace ql {

Uuid Uuid::random() {
    const QByteArray raw = QUuid::createUuid().toRfc4122();
    Uuid id;
    for (int i = 0; i < 16; ++i)
        id.bytes[i] = static_cast<std::uint8_t>(raw[i]);
    return id;
}

static int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid id;
    size_t byte = 0;
    for (size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        const int hi = hexValue(text[i]), lo = hexValue(text[i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        id.bytes[byte++] = static_cast<std::uint8_t>(hi * 16 + lo);
        i += 2;
    }
    return id;
}

std::string Uuid::string() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string s;
    s.reserve(36);
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) s.push_back('-');
        s.push_back(digits[bytes[i] >> 4]);
        s.push_back(digits[bytes[i] & 15]);
    }
    return s;
}

bool Uuid::isNull() const {
    for (auto b : bytes)
        if (b) return false;
    return true;
}

bool Codec<Uuid>::read(const Json& j, Uuid& out) {
    if (!j.is_string()) return false;
    const auto id = Uuid::parse(j.get_ref<const std::string&>());
    if (!id) return false;
    out = *id;
    return true;
}

bool Codec<Bytes>::read(const Json& j, Bytes& out) {
    if (!j.is_string()) return false;
    const auto& text = j.get_ref<const std::string&>();
    const auto decoded = QByteArray::fromBase64Encoding(
        QByteArray::fromRawData(text.data(), static_cast<qsizetype>(text.size())),
        QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded) return false;
    out.data.assign(decoded.decoded.constData(), static_cast<size_t>(decoded.decoded.size()));
    return true;
}

OrderedJson Codec<Bytes>::write(const Bytes& v) {
    const QByteArray raw(v.data.data(), static_cast<qsizetype>(v.data.size()));
    return raw.toBase64().toStdString();
}

}  // namespace ql
