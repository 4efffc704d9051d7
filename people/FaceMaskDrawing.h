// The soft masks of faces, drawn from their landmarks: vector shapes painted on a grey canvas
// whose long edge is 1024, scaled back to the picture and softened.
#pragma once

#include <vector>

#include "FaceMasks.h"
#include "imaging/Execution.h"
#include "imaging/Image.h"
#include "vision/FaceShape.h"

namespace ql::FaceParts {

enum class Part {
    eyes,
    underEyes,
    teeth,
    clearSkin,
    faceSkin,
    iris,
    glasses,
    lips,
    brows,
    lashes,
    sclera
};

/// One part's mask for all faces, width × height, white where the part is: black where no face has
/// the part, empty for a size below 1 or a cancelled execution. Each part is softened by a Gaussian
/// of its own width, a fixed fraction of the long edge.
img::Image mask(Part part, const std::vector<vision::FaceShape>& faces, int width, int height,
                const img::Execution& exec = {});

/// The hair search zones: red the core above the brows, green the wide zone around the head.
img::Image colourMask(const std::vector<vision::FaceShape>& faces, int width, int height,
                      const img::Execution& exec = {});

/// Dodge (red) and burn (green) map for contouring: soft highlights on the forehead, the nose ridge
/// and the chin, shadows under the cheekbones, turned with each face.
img::Image sculptMap(const std::vector<vision::FaceShape>& faces, int width, int height,
                     const img::Execution& exec = {});

/// The base skin mask: a soft disc on every face box, the fall-off of all facial work.
img::Image skinDisc(const std::vector<vision::Rect>& boxes, int width, int height,
                    const img::Execution& exec = {});

/// `skin` extended by every finer mask of the faces, the hair zones (`hairRegion`, as colourMask)
/// and the contour map (`sculpt`); `person` and `info` stay as they are. Without faces there is
/// nothing finer to draw and `skin` comes back as it is.
FaceMasks masks(const std::vector<vision::FaceShape>& faces, int width, int height,
                const FaceMasks& skin, const img::Execution& exec = {});

}  // namespace ql::FaceParts
