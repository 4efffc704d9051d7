#include "Adjustments.h"

#include "AdjustmentFields.h"

namespace ql {
namespace {

// Records nest a handful of levels (layer → stroke → point); anything far deeper is hostile.
constexpr int maxNesting = 100;

/// The deepest nesting of arrays and objects in JSON text, strings skipped.
int nestingDepth(std::string_view text) {
    int depth = 0, deepest = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return deepest;
}

/// nlohmann prefixes its messages with an internal tag; the user needs only the sentence.
std::string describe(const std::exception& e) {
    std::string what = e.what();
    if (!what.empty() && what[0] == '[') {
        const size_t close = what.find("] ");
        if (close != std::string::npos) what.erase(0, close + 2);
    }
    return what;
}

}  // namespace

const Adjustments& Adjustments::defaults() {
    static const Adjustments neutral{};
    return neutral;
}

std::optional<Adjustments> Adjustments::fromJson(const Json& json) {
    if (!json.is_object()) return std::nullopt;
    Adjustments a;
    for (const auto& f : adjustmentFields()) {
        const auto it = json.find(f.key);
        if (it != json.end()) f.read(*it, a);  // a failing key keeps its default
    }
    return a;
}

bool Codec<Adjustments>::read(const Json& j, Adjustments& out) {
    auto a = Adjustments::fromJson(j);
    if (!a) return false;
    out = std::move(*a);
    return true;
}

std::optional<Adjustments> Adjustments::decode(std::string_view text, std::string* error) {
    auto fail = [&](std::string message) -> std::optional<Adjustments> {
        if (error) *error = std::move(message);
        return std::nullopt;
    };
    if (nestingDepth(text) > maxNesting)
        return fail("the data is nested more than " + std::to_string(maxNesting) + " levels deep");
    Json json;
    try {
        json = Json::parse(text);
    } catch (const Json::exception& e) {
        return fail(describe(e));
    }
    if (!json.is_object())
        return fail(std::string("the data is not a JSON object but ") + json.type_name());
    return fromJson(json);
}

OrderedJson Adjustments::toJson() const {
    OrderedJson object = OrderedJson::object();
    for (const auto& f : adjustmentFields())
        f.write(*this, f.key, object);
    return object;
}

std::string Adjustments::encode(bool pretty) const {
    // Invalid UTF-8 in a user's text must not stop a save: it is replaced, not thrown.
    return toJson().dump(pretty ? 2 : -1, ' ', false, OrderedJson::error_handler_t::replace);
}

Adjustments Adjustments::withoutPreset() const {
    if (preset && preset->on)
        if (auto before = decode(preset->before.data)) return *before;
    Adjustments copy = *this;
    copy.preset.reset();
    return copy;
}

Adjustments Adjustments::taking(const std::set<SettingsGroup>& groups,
                                const Adjustments& from) const {
    Adjustments result = *this;
    for (const auto& f : adjustmentFields())
        if (f.group && groups.contains(*f.group)) f.copy(from, result);
    return result;
}

}  // namespace ql
