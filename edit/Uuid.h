// A 128-bit identifier, written as Swift and most tools write it: upper-case 8-4-4-4-12 hex.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Codec.h"

namespace ql {

struct Uuid {
    std::array<std::uint8_t, 16> bytes{};

    static Uuid random();
    /// Accepts either case; anything but the 36-character form is rejected.
    static std::optional<Uuid> parse(std::string_view text);
    std::string string() const;
    bool isNull() const;

    auto operator<=>(const Uuid&) const = default;
};

template <>
struct Codec<Uuid> {
    static bool read(const Json& j, Uuid& out);
    static OrderedJson write(const Uuid& v) { return v.string(); }
};

/// Opaque bytes, written as base64 text the way Swift's JSON encoder writes `Data`.
struct Bytes {
    std::string data;
    bool operator==(const Bytes&) const = default;
};

template <>
struct Codec<Bytes> {
    static bool read(const Json& j, Bytes& out);
    static OrderedJson write(const Bytes& v);
};

}  // namespace ql
