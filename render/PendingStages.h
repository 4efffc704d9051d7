// The pipeline stages whose subsystems are not written yet. Each has the signature its subsystem
// will have and, for now, hands its input on unchanged, so the pipeline's order is already final.
#pragma once

#include <vector>

#include "people/FaceMasks.h"
#include "edit/Adjustments.h"
#include "imaging/CropRegion.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"

namespace ql {

namespace Healer {
/// Healing strokes, in the frame after geometry.
inline img::Image apply(const img::Image& image, const std::vector<BrushStroke>&,
                        const img::Execution& = {}) {
    return image;
}
}  // namespace Healer

namespace Restorer {
/// Old-photo restoration; `faces` (may be empty) protects skin.
inline img::Image apply(const RestoreOld&, const img::Image& image, int /*longEdge*/,
                        const img::Image& /*faces*/, const img::Execution& = {}) {
    return image;
}
}  // namespace Restorer

namespace FaceParts {
/// The four quick face sliders.
inline img::Image apply(const img::Image& image, const FaceRetouch&, const FaceMasks&,
                        int /*longEdge*/, const img::Execution& = {}) {
    return image;
}
}  // namespace FaceParts

namespace PortraitRetouch {
/// The portrait work that must see the sensor's geometry (reshaping), before any user geometry.
inline img::Image beforeGeometry(const img::Image& image, const Portrait&, const PortraitInfo*,
                                 const img::Execution& = {}) {
    return image;
}
/// The studio portrait panel.
inline img::Image apply(const img::Image& image, const Portrait&, const FaceMasks&,
                        int /*longEdge*/, const img::Execution& = {}) {
    return image;
}
}  // namespace PortraitRetouch

namespace MaskBuilder {
/// The layer's mask over `extent`, white where its edit applies; empty when none can be built.
inline img::Image mask(const MaskLayer&, const img::PixelRect& /*extent*/,
                       const img::Image& /*image*/, const img::Execution& = {}) {
    return {};
}
}  // namespace MaskBuilder

namespace BackdropRender {
struct Result {
    img::Image image;
    img::Image keep;  // what a transparent backdrop keeps; empty for the other kinds
};
/// The subject over a new backdrop.
inline Result apply(const img::Image& image, const img::Image& /*mask*/, const Backdrop&,
                    const img::Execution& = {}) {
    return {image, {}};
}
/// Clears everything outside `inside`.
inline img::Image keep(const img::Image& image, const img::Image& /*inside*/,
                       const img::Execution& = {}) {
    return image;
}
}  // namespace BackdropRender

}  // namespace ql
