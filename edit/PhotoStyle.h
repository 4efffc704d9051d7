// The nine looks the automatic editor and the user choose from.
#pragma once

#include "Codec.h"

namespace ql {

enum class PhotoStyle { natural, bright, vivid, warm, solemn, cinematic, film, pastel, mono };

template <>
struct EnumNames<PhotoStyle> {
    static constexpr std::array<std::string_view, 9> names{
        "natural", "bright", "vivid", "warm", "solemn", "cinematic", "film", "pastel", "mono"};
    /// Shown names; localisation keys.
    static constexpr std::array<std::string_view, 9> labels{
        "Tự nhiên", "Sáng trong", "Rực rỡ", "Ấm áp",    "Trang nghiêm",
        "Điện ảnh", "Phim xưa",   "Pastel", "Đen trắng"};
    /// One-line descriptions; localisation keys.
    static constexpr std::array<std::string_view, 9> blurbs{
        "Đúng màu, sáng vừa, giữ cảm giác thật",
        "Sáng, trong, thoáng; hợp ảnh sự kiện, cưới, nhà thờ trắng",
        "Màu tươi, đậm, có chiều sâu; hợp ảnh ngoài trời, lễ hội",
        "Ánh vàng ấm áp, thân mật; hợp ảnh trong nhà, chiều tà",
        "Trầm, sâu, tối góc nhẹ; hợp thánh lễ, nghi thức",
        "Vùng tối xanh, da ấm, như phim chiếu rạp",
        "Màu dịu, đen hơi bạc, có hạt; hoài cổ",
        "Mềm, nhạt, nhẹ nhàng; hợp chân dung, thiếu nhi",
        "Đen trắng tương phản; hợp chân dung, khoảnh khắc"};
};

inline std::string_view name(PhotoStyle s) {
    return enumLabel(s);
}
inline std::string_view blurb(PhotoStyle s) {
    return EnumNames<PhotoStyle>::blurbs[static_cast<size_t>(s)];
}

}  // namespace ql
