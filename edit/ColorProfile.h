// Which base rendering a RAW file starts from.
#pragma once

#include "Codec.h"

namespace ql {

/// `camera`: the look fitted to the camera's own JPEG; `apple`: the RAW decoder's plain rendering
/// (the raw value stays as stored in existing records).
enum class ColorProfile { camera, apple };

template <>
struct EnumNames<ColorProfile> {
    static constexpr std::array<std::string_view, 2> names{"camera", "apple"};
    static constexpr std::array<std::string_view, 2> labels{"Màu máy ảnh",
                                                            "Màu trung tính (bộ giải mã RAW)"};
};

}  // namespace ql
