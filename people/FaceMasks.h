// The masks that people analysis hands to the retouch stages, in base-image coordinates.
#pragma once

#include <array>
#include <functional>
#include <memory>

#include <optional>
#include <utility>
#include <vector>

#include "imaging/Image.h"
#include "vision/BodyPose.h"
#include "vision/FaceShape.h"

namespace ql {

/// What the analysis measured about the people, for the portrait stages.
struct PortraitInfo {
    std::vector<vision::FaceShape> faces;
    std::vector<vision::BodyPose> bodies;
    /// The eye tools' patch and mask, when they made one.
    std::optional<std::pair<img::Image, img::Image>> eyes;
    /// One mask per clothes recolour, absent where none was found.
    std::vector<std::optional<img::Image>> clothes;
    /// What shape work must leave still.
    std::optional<img::Image> keep;
};

/// Soft masks, white where a part is: `skin` always, the finer parts when they were asked for.
/// An empty image means the part is absent. A mask is read by its red channel (the hair map also
/// by its green); its alpha is its largest channel, so black is transparent black.
struct FaceMasks {
    img::Image skin;
    img::Image clearSkin, eyes, underEyes, teeth, faceSkin, iris, glasses, hairRegion, person, lips,
        brows, lashes, sclera, sculpt;
    std::shared_ptr<const PortraitInfo> info;

    /// The same set with `f` applied to every present mask, so a geometric step moves them all.
    FaceMasks map(const std::function<img::Image(const img::Image&)>& f) const {
        FaceMasks out;
        out.info = info;
        for (const auto member : members()) {
            const img::Image& m = this->*member;
            if (!m.empty()) out.*member = f(m);
        }
        return out;
    }

  private:
    static constexpr std::array<img::Image FaceMasks::*, 15> members() {
        return {&FaceMasks::skin,      &FaceMasks::clearSkin, &FaceMasks::eyes,
                &FaceMasks::underEyes, &FaceMasks::teeth,     &FaceMasks::faceSkin,
                &FaceMasks::iris,      &FaceMasks::glasses,   &FaceMasks::hairRegion,
                &FaceMasks::person,    &FaceMasks::lips,      &FaceMasks::brows,
                &FaceMasks::lashes,    &FaceMasks::sclera,    &FaceMasks::sculpt};
    }
};

}  // namespace ql
