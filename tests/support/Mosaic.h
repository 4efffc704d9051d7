// Large pictures with a camera's detail: photos of the sample shoot tiled at their native size.
#pragma once

#include <string>
#include <vector>

#include "imaging/Image.h"

namespace ql::testing {

/// Rows of tiles cycling through `photos` (file names in the sample shoot), each at its own
/// size, cropped at the right and bottom edges.
img::Image sampleMosaic(int width, int height, const std::vector<std::string>& photos);

}  // namespace ql::testing
