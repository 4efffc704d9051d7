// The develop pipeline: one decoded picture and one edit record in, the edited picture out. Every
// viewer of an edit (preview, export, thumbnails, analysis) calls this one function, so what is
// judged is what is delivered.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "edit/Adjustments.h"
#include "edit/LUTKey.h"
#include "imaging/ColorCube.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"
#include "people/FaceMasks.h"

namespace ql {

using img::CubeData;

class Pipeline {
  public:
    Pipeline() = default;
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    /// The edit applied to `image`, the decoded base before any user geometry. With `isRAW` the
    /// decoder has already done white balance and luminance noise reduction. `cameraLUT` (17 nodes
    /// per axis) is the camera look, used while `profile` is `camera`. `cropping` false leaves the
    /// crop rectangle out. Masks are in base-image coordinates; an empty image or null means none.
    /// The person mask may be smaller than the picture (the size it was found at): it is stretched
    /// over it. Never fails: a stage that gives nothing keeps its input. Empty only when cancelled.
    /// Given the only handle to `image` (std::move), the render works in its pixels, so a
    /// full-size export holds one picture fewer.
    img::Image apply(const Adjustments& adjustments, img::Image image, bool isRAW,
                     const CubeData& cameraLUT, bool cropping, const img::Image& personMask,
                     const FaceMasks* faceMask, const img::Image& subjectMask,
                     const img::Execution& exec = {}) const;

    /// The 48-node cube of the tone and colour sliders; the last one baked is kept, so a drag
    /// on a slider outside the cube costs no bake. Baking holds the lock, so two threads needing
    /// the same cube bake it once.
    CubeData lutData(const LUTKey& key, const img::Execution& exec = {}) const;

    /// The eight sliders of a person, background or layer edit, with radii scaled by `longEdge`.
    static img::Image local(img::Image image, const LocalEdit& edit, int longEdge,
                            const img::Execution& exec = {});

    /// Monochrome film grain, `amount` 0…1, its size kept on the print by `longEdge`. A pure
    /// function of the pixel positions: two renders are identical.
    static img::Image addGrain(img::Image image, double amount, int longEdge,
                               const img::Execution& exec = {});

  private:
    mutable std::optional<std::pair<LUTKey, CubeData>> lutCache_;
    mutable std::mutex lock_;
};

}  // namespace ql
