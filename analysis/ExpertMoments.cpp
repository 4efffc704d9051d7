#include <algorithm>
#include <cmath>
#include <map>
#include <variant>

#include "analysis/Expert.h"
#include "edit/AppLanguage.h"
#include "imaging/codec/Metadata.h"
#include "render/PhotoInfo.h"

namespace ql {

namespace Expert {

namespace {

struct Shot {
    std::string url;
    std::optional<std::chrono::system_clock::time_point> date;
    std::optional<std::string> camera;
};

std::string_view fileName(std::string_view url) {
    const auto slash = url.find_last_of('/');
    return slash == std::string_view::npos ? url : url.substr(slash + 1);
}

// Element n / 2 of the sorted values; an even count takes the upper of the middle two. A value
// that is not a number sorts last, so that the order stays strict.
double median(std::vector<double> values) {
    std::sort(values.begin(), values.end(),
              [](double a, double b) { return a < b || (std::isnan(b) && !std::isnan(a)); });
    return values[values.size() / 2];
}

}  // namespace

std::vector<std::vector<std::string>> moments(const std::vector<std::string>& urls,
                                              std::chrono::seconds gap) {
    std::vector<Shot> shots;
    shots.reserve(urls.size());
    for (const std::string& url : urls) {
        // An unreadable file gives empty metadata: no date, no camera, so it stands alone.
        const img::Metadata metadata = img::Metadata::read(url);
        shots.push_back({url, captureDate(metadata), metadata.text("Exif.Image.Model")});
    }
    // An absent date orders before every date.
    std::stable_sort(shots.begin(), shots.end(), [](const Shot& a, const Shot& b) {
        if (a.date != b.date) return a.date < b.date;
        return fileName(a.url) < fileName(b.url);
    });

    std::vector<std::vector<std::string>> groups;
    const Shot* last = nullptr;
    for (const Shot& shot : shots) {
        const bool joins = last && shot.date && last->date && *shot.date <= *last->date + gap &&
                           shot.camera == last->camera && groups.back().size() < 24;
        if (!joins) groups.emplace_back();
        groups.back().push_back(shot.url);
        last = &shot;
    }
    return groups;
}

void harmonize(std::vector<ExpertPlan>& plans) {
    if (plans.size() < 2) return;

    std::vector<double> exposures, warmths;
    std::map<PhotoStyle, int> counts;
    for (const ExpertPlan& plan : plans) {
        exposures.push_back(plan.correction.exposure);
        if (plan.analysis.lookWarmth) warmths.push_back(*plan.analysis.lookWarmth);
        ++counts[plan.style];
    }
    const double exposure = median(exposures);
    const double warmth = warmths.empty() ? 0 : median(warmths);  // read only where one is set
    // Ties go to the earlier style; a tie never holds more than half, so it changes nothing.
    const auto [modal, modalCount] =
        *std::max_element(counts.begin(), counts.end(),
                          [](const auto& a, const auto& b) { return a.second < b.second; });
    std::vector<double> strengths;
    for (const ExpertPlan& plan : plans)
        if (plan.style == modal) strengths.push_back(plan.strength);
    const double strength = median(strengths);
    const bool modalRules = modalCount * 2 > static_cast<int>(plans.size());

    const std::string note =
        localized("đồng bộ với ") + std::to_string(plans.size() - 1) + localized(" ảnh cùng lúc");
    for (ExpertPlan& plan : plans) {
        // A frame 0.7 EV or more away was exposed differently on purpose and keeps its own.
        double& ev = plan.correction.exposure;
        if (std::abs(ev - exposure) < 0.7) ev = std::round((0.4 * exposure + 0.6 * ev) * 20) / 20;
        auto& look = plan.analysis.lookWarmth;
        if (look && std::abs(*look - warmth) < 40) *look = 0.5 * warmth + 0.5 * *look;
        if (plan.style != modal && modalRules) {
            plan.style = modal;
            plan.strength = strength;
        }
        plan.notes.push_back(note);
    }
}

}  // namespace Expert

}  // namespace ql
