#include "AdjustmentFields.h"

#include <array>
#include <type_traits>

namespace ql {
namespace {

template <class M>
struct MemberType;
template <class C, class T>
struct MemberType<T C::*> {
    using type = T;
};

template <auto M>
AdjustmentField makeField(std::string_view key, std::string_view label,
                          std::optional<SliderRange> range, std::optional<SettingsGroup> group,
                          bool cube) {
    using T = typename MemberType<decltype(M)>::type;
    AdjustmentField f{key, label, range, group, cube};
    f.read = [](const Json& v, Adjustments& a) { return Codec<T>::read(v, a.*M); };
    f.write = [](const Adjustments& a, std::string_view k, OrderedJson& object) {
        writeKey(object, k, a.*M);
    };
    f.equal = [](const Adjustments& a, const Adjustments& b) { return a.*M == b.*M; };
    f.copy = [](const Adjustments& from, Adjustments& into) { into.*M = from.*M; };
    f.number = [](const Adjustments& a) -> std::optional<double> {
        if constexpr (std::is_same_v<T, double> || std::is_same_v<T, std::optional<double>>)
            return a.*M;
        else if constexpr (std::is_same_v<T, int>)
            return static_cast<double>(a.*M);
        else
            return std::nullopt;
    };
    f.setNumber = [](Adjustments& a, double v) {
        if constexpr (std::is_same_v<T, double> || std::is_same_v<T, std::optional<double>>)
            a.*M = v;
        else if constexpr (std::is_same_v<T, int>)
            a.*M = static_cast<int>(v);
    };
    return f;
}

/// Quarter turns wrap: 5 reads as 1 and -1 as 3, as a turn count would.
bool readQuarterTurns(const Json& v, Adjustments& a) {
    std::int64_t turns = 0;
    if (!Codec<int>::readInt64(v, turns)) return false;
    a.quarterTurns = static_cast<int>(turns & 3);
    return true;
}

constexpr SliderRange signed100{-100, 100, 1};
constexpr SliderRange unsigned100{0, 100, 1};
constexpr std::optional<SliderRange> noRange;
constexpr std::optional<SettingsGroup> noGroup;

using G = SettingsGroup;

// The key is the member's name, so the two can never drift apart.
#define QL_FIELD(name, label, range, group, cube) \
    makeField<&Adjustments::name>(#name, label, range, group, cube)

std::array<AdjustmentField, 52> buildTable() {
    std::array<AdjustmentField, 52> t{
        QL_FIELD(rawTemperature, "Nhiệt độ màu", SliderRange({2500, 12000, 50}), G::whiteBalance,
                 false),
        QL_FIELD(rawTint, "Sắc thái", SliderRange({-150, 150, 1}), G::whiteBalance, false),
        QL_FIELD(temperature, "Nhiệt độ màu", signed100, G::whiteBalance, false),
        QL_FIELD(tint, "Sắc thái", signed100, G::whiteBalance, false),
        QL_FIELD(exposure, "Phơi sáng", SliderRange({-5, 5, 0.01}), G::light, false),
        QL_FIELD(contrast, "Tương phản", signed100, G::light, true),
        QL_FIELD(highlights, "Vùng sáng", signed100, G::light, true),
        QL_FIELD(shadows, "Vùng tối", signed100, G::light, true),
        QL_FIELD(whites, "Điểm trắng", signed100, G::light, true),
        QL_FIELD(blacks, "Điểm đen", signed100, G::light, true),
        QL_FIELD(texture, "Kết cấu", signed100, G::presence, false),
        QL_FIELD(clarity, "Độ rõ nét", signed100, G::presence, false),
        QL_FIELD(dehaze, "Khử sương mờ", signed100, G::presence, true),
        QL_FIELD(vibrance, "Độ rực màu", signed100, G::presence, true),
        QL_FIELD(saturation, "Độ bão hòa", signed100, G::presence, true),
        QL_FIELD(curves, "Đường cong", noRange, G::curve, true),
        QL_FIELD(mixHue, "Sắc độ", noRange, G::color, true),
        QL_FIELD(mixSaturation, "Độ bão hòa", noRange, G::color, true),
        QL_FIELD(mixLuminance, "Độ sáng", noRange, G::color, true),
        QL_FIELD(gradeShadows, "Vùng tối", noRange, G::color, true),
        QL_FIELD(gradeMidtones, "Vùng trung tính", noRange, G::color, true),
        QL_FIELD(gradeHighlights, "Vùng sáng", noRange, G::color, true),
        QL_FIELD(gradeGlobal, "Toàn ảnh", noRange, G::color, true),
        QL_FIELD(gradeBlending, "Độ hòa trộn", unsigned100, G::color, true),
        QL_FIELD(gradeBalance, "Cân bằng", signed100, G::color, true),
        QL_FIELD(sharpening, "Làm nét", SliderRange({0, 150, 1}), G::detail, false),
        QL_FIELD(noiseReduction, "Giảm nhiễu", unsigned100, G::detail, false),
        QL_FIELD(skinEven, "Đều màu da", unsigned100, G::detail, false),
        QL_FIELD(retouch, "Khuôn mặt (AI)", noRange, G::detail, false),
        QL_FIELD(portrait, "Chân dung", noRange, noGroup, false),
        QL_FIELD(restore, "Phục hồi ảnh cũ", noRange, noGroup, false),
        QL_FIELD(layers, "Lớp chỉnh cục bộ", noRange, G::local, false),
        QL_FIELD(heals, "Xóa vết, vật thừa", noRange, noGroup, false),
        QL_FIELD(vignette, "Viền tối/sáng", signed100, G::effects, false),
        QL_FIELD(vignetteMidpoint, "Điểm giữa viền", unsigned100, G::effects, false),
        QL_FIELD(grain, "Hạt phim", unsigned100, G::effects, false),
        QL_FIELD(quarterTurns, "Xoay", SliderRange({0, 3, 1}), G::geometry, false),
        QL_FIELD(flipHorizontal, "Lật ngang", noRange, G::geometry, false),
        QL_FIELD(perspectiveVertical, "Phối cảnh dọc", signed100, G::geometry, false),
        QL_FIELD(perspectiveHorizontal, "Phối cảnh ngang", signed100, G::geometry, false),
        QL_FIELD(rotation, "Nắn thẳng", SliderRange({-45, 45, 0.1}), G::geometry, false),
        QL_FIELD(crop, "Cắt khung", noRange, G::geometry, false),
        QL_FIELD(cropAspect, "Tỉ lệ khung", noRange, G::geometry, false),
        QL_FIELD(profile, "Màu gốc", noRange, G::style, false),
        QL_FIELD(people, "Người (AI)", noRange, G::local, false),
        QL_FIELD(background, "Nền (AI)", noRange, G::local, false),
        QL_FIELD(style, "Phong cách", noRange, G::style, false),
        QL_FIELD(styleStrength, "Độ mạnh phong cách", unsigned100, G::style, false),
        QL_FIELD(expertNote, "Ghi chú chỉnh tự động", noRange, noGroup, false),
        QL_FIELD(preset, "Preset", noRange, noGroup, false),
        QL_FIELD(backdrop, "Tách nền, thay nền (AI)", noRange, noGroup, false),
        QL_FIELD(lens, "Hiệu chỉnh ống kính", noRange, G::detail, false),
    };
    for (auto& f : t)
        if (f.key == "quarterTurns") f.read = readQuarterTurns;
    return t;
}

#undef QL_FIELD

}  // namespace

std::span<const AdjustmentField> adjustmentFields() {
    static const std::array<AdjustmentField, 52> table = buildTable();
    return table;
}

const AdjustmentField* adjustmentField(std::string_view key) {
    for (const auto& f : adjustmentFields())
        if (f.key == key) return &f;
    return nullptr;
}

}  // namespace ql
