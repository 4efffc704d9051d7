// One local adjustment: a shape and the LocalEdit applied inside it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrushStroke.h"
#include "LocalEdit.h"
#include "Uuid.h"

namespace ql {

struct MaskLayer {
    enum class Kind { linear, radial, brush, bright, sky };

    /// The one layer the AI region tool paints; its strokes follow edges unless told otherwise.
    static constexpr std::string_view aiRegionName = "Vùng AI";

    Uuid id;
    Kind kind = Kind::brush;
    std::string name;
    bool visible = true;
    bool invert = false;
    LocalEdit edit;
    NPoint a{0.5, 0.3};  // gradient start, or the centre of a radial
    NPoint b{0.5, 0.7};  // gradient end
    NPoint size{0.25, 0.25};
    double feather = 0.5;
    std::vector<BrushStroke> strokes;
    double brightFrom = 0.7;
    std::optional<bool> followEdges;

    bool followsEdges() const { return followEdges.value_or(name == aiRegionName); }

    bool operator==(const MaskLayer&) const = default;
    static auto fields() {
        return std::tuple{requiredField("id", &MaskLayer::id),
                          field("kind", &MaskLayer::kind),
                          field("name", &MaskLayer::name),
                          field("visible", &MaskLayer::visible),
                          field("invert", &MaskLayer::invert),
                          field("edit", &MaskLayer::edit),
                          field("a", &MaskLayer::a),
                          field("b", &MaskLayer::b),
                          field("size", &MaskLayer::size),
                          field("feather", &MaskLayer::feather),
                          field("strokes", &MaskLayer::strokes),
                          field("brightFrom", &MaskLayer::brightFrom),
                          field("followEdges", &MaskLayer::followEdges)};
    }
};

template <>
struct EnumNames<MaskLayer::Kind> {
    static constexpr std::array<std::string_view, 5> names{"linear", "radial", "brush", "bright",
                                                           "sky"};
};

}  // namespace ql
