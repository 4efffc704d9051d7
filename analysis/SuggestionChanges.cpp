#include <cmath>
#include <cstdio>

#include "Suggestion.h"
#include "edit/AppLanguage.h"
#include "edit/Uuid.h"

namespace ql {

namespace {

// Below this a difference is rounding noise, not a change the user would see.
constexpr double tolerance = 0.001;

bool differ(double a, double b) {
    return std::abs(a - b) > tolerance;
}

std::string number(double value, int decimals, bool sign) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, sign && value > 0 ? "+%.*f" : "%.*f", decimals, value);
    return buffer;
}

std::string grade(const GradeWheel& w) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%.0f° / %.0f / %.0f", w.hue, w.saturation, w.luminance);
    return buffer;
}

struct Lines {
    std::vector<SuggestionChange> list;

    void add(std::string label, std::string from, std::string to) {
        list.push_back({Uuid::random().string(), std::move(label), std::move(from), std::move(to)});
    }
    void value(std::string_view label, double from, double to, int decimals) {
        if (differ(from, to))
            add(localized(label), number(from, decimals, true), number(to, decimals, true));
    }
    // An absent RAW setting means the camera's own, which is what the user sees it as.
    void asShot(std::string_view label, const std::optional<double>& from,
                const std::optional<double>& to, const std::string& suffix, bool sign) {
        const bool same = from && to ? !differ(*from, *to) : from.has_value() == to.has_value();
        if (same) return;
        auto text = [&](const std::optional<double>& v) {
            return v ? number(*v, 0, sign) + suffix : localized("Như lúc chụp");
        };
        add(localized(label), text(from), text(to));
    }
};

}  // namespace

std::vector<SuggestionChange> changes(const Adjustments& from, const Adjustments& to, bool isRAW) {
    Lines lines;
    if (isRAW) {
        lines.asShot("Nhiệt độ màu", from.rawTemperature, to.rawTemperature, " K", false);
        lines.asShot("Sắc thái", from.rawTint, to.rawTint, "", true);
    } else {
        lines.value("Nhiệt độ màu", from.temperature, to.temperature, 0);
        lines.value("Sắc thái", from.tint, to.tint, 0);
    }
    const std::pair<std::string_view, double Adjustments::*> sliders[] = {
        {"Tương phản", &Adjustments::contrast},  {"Vùng sáng", &Adjustments::highlights},
        {"Vùng tối", &Adjustments::shadows},     {"Điểm trắng", &Adjustments::whites},
        {"Điểm đen", &Adjustments::blacks},      {"Độ rõ nét", &Adjustments::clarity},
        {"Khử sương mờ", &Adjustments::dehaze},  {"Độ rực màu", &Adjustments::vibrance},
        {"Độ bão hòa", &Adjustments::saturation}};
    lines.value("Phơi sáng", from.exposure, to.exposure, 2);
    for (const auto& [label, field] : sliders)
        lines.value(label, from.*field, to.*field, 0);
    lines.value("Người · phơi sáng", from.people.exposure, to.people.exposure, 2);
    lines.value("Người · tương phản", from.people.contrast, to.people.contrast, 0);
    lines.value("Nền · phơi sáng", from.background.exposure, to.background.exposure, 2);

    const std::pair<std::string_view, BandValues Adjustments::*> mixer[] = {
        {"sắc độ", &Adjustments::mixHue},
        {"bão hòa", &Adjustments::mixSaturation},
        {"độ sáng", &Adjustments::mixLuminance}};
    for (const ColorBand band : allCases<ColorBand>()) {
        const size_t i = static_cast<size_t>(band);
        for (const auto& [part, row] : mixer) {
            if (!differ((from.*row)[i], (to.*row)[i])) continue;
            lines.add(localized(enumLabel(band)) + " · " + localized(part),
                      number((from.*row)[i], 0, true), number((to.*row)[i], 0, true));
        }
    }

    const std::pair<std::string_view, GradeWheel Adjustments::*> wheels[] = {
        {"Màu vùng tối", &Adjustments::gradeShadows},
        {"Màu vùng sáng", &Adjustments::gradeHighlights}};
    for (const auto& [label, wheel] : wheels) {
        const GradeWheel &a = from.*wheel, &b = to.*wheel;
        if (differ(a.hue, b.hue) || differ(a.saturation, b.saturation) ||
            differ(a.luminance, b.luminance))
            lines.add(localized(label), grade(a), grade(b));
    }
    return std::move(lines.list);
}

}  // namespace ql
