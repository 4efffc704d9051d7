// Makes the one analysis of a photo that every automatic editor reads.
#pragma once

#include <optional>
#include <string>

#include "PhotoAnalysis.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"

namespace ql {

/// Not thread-safe: the editor keeps one for its photo, a batch makes one per photo.
class PhotoAnalyzer {
  public:
    explicit PhotoAnalyzer(const Pipeline& pipeline) : pipeline_(pipeline) {}

    /// The photo as it came from the camera (the plain edit, never the current one), measured at
    /// 640 pixels: statistics, faces, colours, sharpness, level, people; its auto tone and its
    /// neutral white. With `withJPEG` also a JPEG of at most 1024 pixels for a model. The last
    /// analysis is kept by the source's path. Nothing when the photo can't be rendered.
    std::optional<PhotoAnalysis> analysis(ImageSource& source, bool withJPEG);

  private:
    const Pipeline& pipeline_;
    std::optional<std::pair<std::string, PhotoAnalysis>> cache_;
};

}  // namespace ql
