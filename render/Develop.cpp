#include "Develop.h"

#include <utility>

namespace ql {

img::Image develop(ImageSource& source, const Pipeline& pipeline, const Adjustments& adjustments,
                   img::Image base, bool cropping, const img::Execution& exec) {
    if (base.empty()) return {};
    const img::Image person = source.maskIfNeeded(adjustments, base);
    const std::optional<FaceMasks> faces = source.facesIfNeeded(adjustments, base);
    return pipeline.apply(adjustments, std::move(base), source.isRAW(), source.cameraLUT(),
                          cropping, person, faces ? &*faces : nullptr, {}, exec);
}

}  // namespace ql
