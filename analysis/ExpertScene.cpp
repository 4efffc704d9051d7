#include <algorithm>
#include <array>
#include <variant>

#include "analysis/Expert.h"

namespace ql {

namespace Expert {

Look defaultLook(SceneKind scene) {
    // In SceneKind order.
    static constexpr std::array<Look, 8> looks{{{PhotoStyle::bright, 0.6},
                                                {PhotoStyle::natural, 1.0},
                                                {PhotoStyle::natural, 1.0},
                                                {PhotoStyle::bright, 0.4},
                                                {PhotoStyle::natural, 1.0},
                                                {PhotoStyle::vivid, 0.5},
                                                {PhotoStyle::natural, 1.0},
                                                {PhotoStyle::warm, 0.6}}};
    const auto index = static_cast<size_t>(scene);
    return index < looks.size() ? looks[index] : Look{PhotoStyle::natural, 1.0};
}

SceneKind scene(const ImageStats& stats, const PhotoInfo& info, double warmth) {
    // Tiny detections are crowd faces or false hits; they say nothing about the subject.
    int faces = 0;
    double widest = 0;
    for (const FaceInfo& face : stats.faces) {
        if (!(face.rect.width > 0.015)) continue;
        ++faces;
        widest = std::max(widest, face.rect.width);
    }
    PhotoFacts facts;
    facts.info = info;
    const bool highISO = facts.isoNumber() >= 3200;

    if (faces >= 1 && faces <= 2 && widest > 0.12) return SceneKind::portrait;
    if (!(stats.sky > 0.08)) {
        if (stats.p50 < 0.3 || highISO) return SceneKind::lowLight;
        if (stats.p50 > 0.55) return SceneKind::whiteInterior;
        return faces < 3 ? SceneKind::interior : SceneKind::group;
    }
    if (warmth < -40 && stats.p50 < 0.55) return SceneKind::goldenHour;
    return stats.p95 - stats.p5 > 0.65 ? SceneKind::outdoorSunny : SceneKind::outdoorShade;
}

}  // namespace Expert

}  // namespace ql
