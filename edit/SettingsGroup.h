// The ten groups that cut an edit into parts for copy, paste, presets and snapshots.
#pragma once

#include <set>

#include "Codec.h"

namespace ql {

enum class SettingsGroup {
    whiteBalance,
    light,
    presence,
    local,
    curve,
    color,
    style,
    detail,
    effects,
    geometry
};

template <>
struct EnumNames<SettingsGroup> {
    static constexpr std::array<std::string_view, 10> names{
        "whiteBalance", "light", "presence", "local",   "curve",
        "color",        "style", "detail",   "effects", "geometry"};
    static constexpr std::array<std::string_view, 10> labels{
        "Cân bằng trắng",
        "Ánh sáng",
        "Hiện diện (độ rõ, độ rực…)",
        "Chỉnh theo vùng (người / nền)",
        "Đường cong",
        "Trộn màu và phân màu",
        "Phong cách và màu gốc",
        "Chi tiết (làm nét, giảm nhiễu, ống kính)",
        "Hiệu ứng (viền tối, hạt phim)",
        "Cắt khung, nắn thẳng, phối cảnh"};
};

/// Every group but geometry: what the copy dialog starts with.
const std::set<SettingsGroup>& usualSettingsGroups();

}  // namespace ql
