// The history line: what an edit changed, in a few words.
#include <array>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "AdjustmentFields.h"
#include "Adjustments.h"

namespace ql {
namespace {

struct ChangeRow {
    enum Kind { number, anyOf, layers, style, preset };
    Kind kind;
    std::array<std::string_view, 9> keys;  // fields the row compares
    std::string_view label;                // for number rows, the field's own label is used
    int decimals = 0;
};

// In the order the history line lists them. vignetteMidpoint and expertNote are deliberately
// not listed: alone they read as "Chỉnh khác".
constexpr std::array<ChangeRow, 38> rows{{
    {ChangeRow::anyOf, {"rawTemperature", "rawTint"}, "Cân bằng trắng RAW"},
    {ChangeRow::number, {"temperature"}, {}, 0},
    {ChangeRow::number, {"tint"}, {}, 0},
    {ChangeRow::number, {"exposure"}, {}, 2},
    {ChangeRow::number, {"contrast"}, {}, 0},
    {ChangeRow::number, {"highlights"}, {}, 0},
    {ChangeRow::number, {"shadows"}, {}, 0},
    {ChangeRow::number, {"whites"}, {}, 0},
    {ChangeRow::number, {"blacks"}, {}, 0},
    {ChangeRow::number, {"texture"}, {}, 0},
    {ChangeRow::number, {"clarity"}, {}, 0},
    {ChangeRow::number, {"dehaze"}, {}, 0},
    {ChangeRow::number, {"vibrance"}, {}, 0},
    {ChangeRow::number, {"saturation"}, {}, 0},
    {ChangeRow::anyOf, {"curves"}, "Đường cong"},
    {ChangeRow::anyOf, {"mixHue", "mixSaturation", "mixLuminance"}, "Trộn màu (HSL)"},
    {ChangeRow::anyOf,
     {"gradeShadows", "gradeMidtones", "gradeHighlights", "gradeGlobal", "gradeBlending",
      "gradeBalance"},
     "Phân màu"},
    {ChangeRow::number, {"sharpening"}, {}, 0},
    {ChangeRow::number, {"noiseReduction"}, {}, 0},
    {ChangeRow::anyOf, {"skinEven", "retouch"}, "Khuôn mặt (AI)"},
    {ChangeRow::anyOf, {"people", "background"}, "Chỉnh theo vùng (AI)"},
    {ChangeRow::layers, {"layers"}, {}},
    {ChangeRow::anyOf, {"heals"}, "Xóa vết, vật thừa"},
    {ChangeRow::number, {"vignette"}, {}, 0},
    {ChangeRow::number, {"grain"}, {}, 0},
    {ChangeRow::anyOf, {"crop", "cropAspect"}, "Cắt khung"},
    {ChangeRow::number, {"rotation"}, {}, 1},
    {ChangeRow::anyOf, {"quarterTurns"}, "Xoay"},
    {ChangeRow::anyOf, {"flipHorizontal"}, "Lật ngang"},
    {ChangeRow::number, {"perspectiveVertical"}, {}, 0},
    {ChangeRow::number, {"perspectiveHorizontal"}, {}, 0},
    {ChangeRow::anyOf, {"profile"}, "Màu gốc"},
    {ChangeRow::style, {"style", "styleStrength"}, "Phong cách"},
    {ChangeRow::preset, {"preset"}, "Preset"},
    {ChangeRow::anyOf, {"backdrop"}, "Tách nền, thay nền (AI)"},
    {ChangeRow::anyOf, {"lens"}, "Hiệu chỉnh ống kính"},
    {ChangeRow::anyOf, {"portrait"}, "Chân dung"},
    {ChangeRow::anyOf, {"restore"}, "Phục hồi ảnh cũ"},
}};

/// The rows' fields, looked up by key once rather than on every call.
using RowFields = std::array<const AdjustmentField*, 9>;
const std::array<RowFields, rows.size()>& rowFields() {
    static const auto resolved = [] {
        std::array<RowFields, rows.size()> fields{};
        for (size_t r = 0; r < rows.size(); ++r)
            for (size_t k = 0; k < rows[r].keys.size(); ++k)
                if (!rows[r].keys[k].empty()) fields[r][k] = adjustmentField(rows[r].keys[k]);
        return fields;
    }();
    return resolved;
}

/// A signed difference: "+" when positive, rounded to `decimals`; Vietnamese uses a comma.
std::string signedNumber(double difference, int decimals, AppLanguage language) {
    char text[64];
    std::snprintf(text, sizeof text, "%s%.*f", difference > 0 ? "+" : "", decimals, difference);
    std::string s = text;
    if (language == AppLanguage::vi)
        for (char& c : s)
            if (c == '.') c = ',';
    return s;
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string s;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i) s += separator;
        s += parts[i];
    }
    return s;
}

std::string layersItem(const std::vector<MaskLayer>& now, const std::vector<MaskLayer>& before,
                       AppLanguage language) {
    if (now.size() > before.size()) {
        std::vector<std::string> names;
        for (size_t i = before.size(); i < now.size(); ++i)
            names.push_back(now[i].name);
        return localized("Thêm lớp: ", language) + joined(names, ", ");
    }
    if (now.size() < before.size()) return localized("Bỏ lớp", language);
    for (size_t i = 0; i < now.size(); ++i)
        if (now[i].strokes != before[i].strokes) return localized("Nét cọ", language);
    return localized("Lớp chỉnh cục bộ", language);
}

}  // namespace

std::string Adjustments::changes(const Adjustments& old) const {
    return changes(old, language::current());
}

std::string Adjustments::changes(const Adjustments& old, AppLanguage language) const {
    std::vector<std::string> items;
    for (size_t r = 0; r < rows.size(); ++r) {
        const ChangeRow& row = rows[r];
        const RowFields& fields = rowFields()[r];
        bool differs = false;
        for (const AdjustmentField* f : fields)
            if (f && !f->equal(*this, old)) differs = true;
        if (!differs) continue;

        switch (row.kind) {
            case ChangeRow::number: {
                const AdjustmentField* f = fields[0];
                const double difference = f->number(*this).value_or(0) - f->number(old).value_or(0);
                if (std::abs(difference) > 0.0001)
                    items.push_back(localized(f->label, language) + " " +
                                    signedNumber(difference, row.decimals, language));
                break;
            }
            case ChangeRow::anyOf:
                items.push_back(localized(row.label, language));
                break;
            case ChangeRow::layers:
                items.push_back(layersItem(layers, old.layers, language));
                break;
            case ChangeRow::style: {
                std::string item = localized(row.label, language);
                if (style) item += ": " + localized(enumLabel(*style), language);
                items.push_back(item);
                break;
            }
            case ChangeRow::preset: {
                const auto& mark = preset ? preset : old.preset;
                items.push_back(localized(row.label, language) + ": " + mark->name);
                break;
            }
        }
    }

    if (items.empty()) return localized("Chỉnh khác", language);
    if (*this == defaults()) return localized("Đặt lại mọi chỉnh sửa", language);
    if (items.size() <= 3) return joined(items, " · ");

    std::string line = joined({items.begin(), items.begin() + 3}, " · ");
    std::string more = localized("và %lld mục khác", language);
    if (const size_t at = more.find("%lld"); at != std::string::npos)
        more.replace(at, 4, std::to_string(items.size() - 3));
    return line + " · " + more;
}

}  // namespace ql
