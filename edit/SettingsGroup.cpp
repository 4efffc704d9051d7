#include "SettingsGroup.h"

namespace ql {

const std::set<SettingsGroup>& usualSettingsGroups() {
    static const std::set<SettingsGroup> usual = [] {
        std::set<SettingsGroup> all;
        for (auto g : allCases<SettingsGroup>())
            if (g != SettingsGroup::geometry) all.insert(g);
        return all;
    }();
    return usual;
}

}  // namespace ql
