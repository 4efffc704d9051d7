// The one JSON mechanism of the edit records.
//
// Records are read forgivingly: every key is tried on its own, and a key that is absent, null, of
// the wrong type or broken inside keeps its default. Scalars and arrays of scalars are strict, so a
// failure anywhere inside them falls back to the nearest record field. Records are written in
// declared order, optional members only when present.
#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

namespace ql {

using Json = nlohmann::json;                 // what decoders read
using OrderedJson = nlohmann::ordered_json;  // what encoders write: keys in declared order

/// A named member of a record. `required` members make the whole record invalid when they fail.
template <class R, class T>
struct Field {
    std::string_view key;
    T R::*member;
    bool required = false;
};

template <class R, class T>
constexpr Field<R, T> field(std::string_view key, T R::*member) {
    return {key, member, false};
}
template <class R, class T>
constexpr Field<R, T> requiredField(std::string_view key, T R::*member) {
    return {key, member, true};
}

/// A record lists its members once, in declared order: `static auto fields()` returns a tuple.
template <class T>
concept Record = requires {
    T::fields();
};

/// Enumerations stored by case name: specialise EnumNames with `names`, an array in case order.
template <class E>
struct EnumNames;

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires {
    EnumNames<E>::names;
};

template <NamedEnum E>
constexpr std::string_view enumName(E e) {
    return EnumNames<E>::names[static_cast<size_t>(e)];
}

template <NamedEnum E>
constexpr std::optional<E> enumFromName(std::string_view name) {
    const auto& names = EnumNames<E>::names;
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) return static_cast<E>(i);
    return std::nullopt;
}

/// The Vietnamese label of a case, where the enumeration has labels; a localisation key.
template <NamedEnum E>
requires requires {
    EnumNames<E>::labels;
}
constexpr std::string_view enumLabel(E e) {
    return EnumNames<E>::labels[static_cast<size_t>(e)];
}

template <NamedEnum E>
constexpr auto allCases() {
    std::array<E, EnumNames<E>::names.size()> cases{};
    for (size_t i = 0; i < cases.size(); ++i)
        cases[i] = static_cast<E>(i);
    return cases;
}

/// Codec<T>::read returns false and leaves `out` alone when the value can't be read as T.
template <class T>
struct Codec;

template <>
struct Codec<double> {
    static bool read(const Json& j, double& out) {
        if (!j.is_number()) return false;
        const double v = j.get<double>();
        if (!std::isfinite(v)) return false;
        out = v;
        return true;
    }
    static OrderedJson write(double v) { return v; }
};

template <>
struct Codec<int> {
    static bool read(const Json& j, int& out) {
        std::int64_t v = 0;
        if (!readInt64(j, v)) return false;
        if (v < std::numeric_limits<int>::min() || v > std::numeric_limits<int>::max())
            return false;
        out = static_cast<int>(v);
        return true;
    }
    /// Whole numbers, also written as 2.0, within the 64-bit range.
    static bool readInt64(const Json& j, std::int64_t& out) {
        if (j.is_number_unsigned()) {
            const auto u = j.get<std::uint64_t>();
            if (u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                return false;
            out = static_cast<std::int64_t>(u);
            return true;
        }
        if (j.is_number_integer()) {
            out = j.get<std::int64_t>();
            return true;
        }
        if (j.is_number_float()) {
            const double d = j.get<double>();
            // 2^63 itself is out of range; every double below it converts exactly.
            if (!std::isfinite(d) || d != std::trunc(d) || d < -9.223372036854775808e18 ||
                d >= 9.223372036854775808e18)
                return false;
            out = static_cast<std::int64_t>(d);
            return true;
        }
        return false;
    }
    static OrderedJson write(int v) { return v; }
};

template <>
struct Codec<bool> {
    static bool read(const Json& j, bool& out) {
        if (!j.is_boolean()) return false;
        out = j.get<bool>();
        return true;
    }
    static OrderedJson write(bool v) { return v; }
};

template <>
struct Codec<std::string> {
    static bool read(const Json& j, std::string& out) {
        if (!j.is_string()) return false;
        out = j.get<std::string>();
        return true;
    }
    static OrderedJson write(const std::string& v) { return v; }
};

template <NamedEnum E>
struct Codec<E> {
    static bool read(const Json& j, E& out) {
        if (!j.is_string()) return false;
        const auto e = enumFromName<E>(j.get_ref<const std::string&>());
        if (!e) return false;
        out = *e;
        return true;
    }
    static OrderedJson write(E v) { return std::string(enumName(v)); }
};

template <class T>
struct Codec<std::optional<T>> {
    static bool read(const Json& j, std::optional<T>& out) {
        T value{};
        if (!Codec<T>::read(j, value)) return false;
        out = std::move(value);
        return true;
    }
};

/// Fixed-length arrays: any other length fails.
template <class T, size_t N>
struct Codec<std::array<T, N>> {
    static bool read(const Json& j, std::array<T, N>& out) {
        if (!j.is_array() || j.size() != N) return false;
        std::array<T, N> values{};
        for (size_t i = 0; i < N; ++i)
            if (!Codec<T>::read(j[i], values[i])) return false;
        out = values;
        return true;
    }
    static OrderedJson write(const std::array<T, N>& v) {
        OrderedJson a = OrderedJson::array();
        for (const auto& x : v)
            a.push_back(Codec<T>::write(x));
        return a;
    }
};

/// Arrays of records drop the elements that are no valid record, so one damaged layer or stroke
/// never takes its siblings with it; arrays of anything else fail as a whole.
template <class T>
struct Codec<std::vector<T>> {
    static bool read(const Json& j, std::vector<T>& out) {
        if (!j.is_array()) return false;
        std::vector<T> values;
        values.reserve(j.size());
        for (const auto& element : j) {
            T value{};
            if (Codec<T>::read(element, value))
                values.push_back(std::move(value));
            else if constexpr (!Record<T>)
                return false;
        }
        out = std::move(values);
        return true;
    }
    static OrderedJson write(const std::vector<T>& v) {
        OrderedJson a = OrderedJson::array();
        for (const auto& x : v)
            a.push_back(Codec<T>::write(x));
        return a;
    }
};

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

/// Reads one key into `value`; returns false only when the key is present but unreadable or, for a
/// required key, when it is absent too.
template <class T>
bool readKey(const Json& object, std::string_view key, T& value, bool required = false) {
    const auto it = object.find(key);
    if (it == object.end()) return !required;
    if (it->is_null() && !required) return true;
    return Codec<T>::read(*it, value);
}

template <class T>
void writeKey(OrderedJson& object, std::string_view key, const T& value) {
    if constexpr (IsOptional<T>::value) {
        if (value) object[std::string(key)] = Codec<typename T::value_type>::write(*value);
    } else {
        object[std::string(key)] = Codec<T>::write(value);
    }
}

template <Record R>
struct Codec<R> {
    static bool read(const Json& j, R& out) {
        if (!j.is_object()) return false;
        R record{};
        bool valid = true;
        auto readMember = [&](const auto& f) {
            if (!readKey(j, f.key, record.*(f.member), f.required) && f.required) valid = false;
        };
        std::apply([&](const auto&... f) { (readMember(f), ...); }, R::fields());
        if (!valid) return false;
        if constexpr (requires { record.isValid(); })
            if (!record.isValid()) return false;
        out = std::move(record);
        return true;
    }
    static OrderedJson write(const R& r) {
        OrderedJson o = OrderedJson::object();
        std::apply([&](const auto&... f) { (writeKey(o, f.key, r.*(f.member)), ...); },
                   R::fields());
        return o;
    }
};

}  // namespace ql
