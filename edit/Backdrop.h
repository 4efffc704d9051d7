// Backdrop replacement: the subject cut out and set on a new ground.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Codec.h"

namespace ql {

struct Backdrop {
    enum class Subject { objects, people };
    enum class Kind { transparent, color, blur, image };

    bool on = false;
    Subject subject = Subject::people;
    Kind kind = Kind::blur;
    double red = 1;  // ground colour, encoded sRGB 0…1
    double green = 1;
    double blue = 1;
    double blur = 50;  // 0…100
    std::optional<std::string> imagePath;
    std::vector<int> toggled;  // subjects switched against the default
    std::vector<int> whole;    // subjects taken whole
    double edge = 0;           // shrink (negative) or grow the mask
    double feather = 0;
    double offsetX = 0;
    double offsetY = 0;
    double scale = 1;  // 1 = as shot
    bool flip = false;
    double shadow = 0;              // 0…100
    double backgroundExposure = 0;  // EV

    bool operator==(const Backdrop&) const = default;
    static auto fields() {
        using B = Backdrop;
        return std::tuple{
            field("on", &B::on),           field("subject", &B::subject),
            field("kind", &B::kind),       field("red", &B::red),
            field("green", &B::green),     field("blue", &B::blue),
            field("blur", &B::blur),       field("imagePath", &B::imagePath),
            field("toggled", &B::toggled), field("whole", &B::whole),
            field("edge", &B::edge),       field("feather", &B::feather),
            field("offsetX", &B::offsetX), field("offsetY", &B::offsetY),
            field("scale", &B::scale),     field("flip", &B::flip),
            field("shadow", &B::shadow),   field("backgroundExposure", &B::backgroundExposure)};
    }
};

template <>
struct EnumNames<Backdrop::Subject> {
    static constexpr std::array<std::string_view, 2> names{"objects", "people"};
    static constexpr std::array<std::string_view, 2> labels{"Mọi vật nổi bật", "Người"};
};

template <>
struct EnumNames<Backdrop::Kind> {
    static constexpr std::array<std::string_view, 4> names{"transparent", "color", "blur", "image"};
    static constexpr std::array<std::string_view, 4> labels{"Trong suốt", "Màu trơn",
                                                            "Nền cũ làm mờ", "Ảnh nền"};
};

}  // namespace ql
