// The one way an edit becomes a file of its own: the full picture rendered, scaled, stamped and
// written with the source's metadata. The source file is never touched.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "ImageSource.h"
#include "Pipeline.h"
#include "edit/Adjustments.h"
#include "edit/ExportRecipe.h"
#include "edit/PhotoMeta.h"
#include "imaging/Execution.h"

namespace ql {

class ExportError : public std::runtime_error {
  public:
    enum class Code {
        fileReadCorruptFile,  // the source gave no picture
        fileWriteUnknown,     // rendering or writing the file failed
    };
    ExportError(Code code, const std::string& what) : std::runtime_error(what), code_(code) {}
    Code code() const { return code_; }

  private:
    Code code_;
};

namespace Exporter {

/// Renders `adjustments` on the full-resolution picture of `source` (on a cheaper reduced
/// development when the delivered size leaves it a third more pixels), cropped, scaled down to
/// `options.longEdge` when `limitSize` asks (never enlarged), stamped with `watermark` after the
/// scaling, and writes it to `to` in sRGB: 8-bit JPEG at `options.quality`, 8-bit PNG or 16-bit
/// TIFF. A transparent backdrop turns white in a JPEG and keeps its alpha otherwise. The source's
/// metadata goes along (orientation 1, the software tag, the trimmed `copyright`, `meta`); maker
/// notes and raw data are dropped. Any file at `to` is replaced, and only once the new one is
/// whole. Throws ExportError; a cancelled `exec` throws fileWriteUnknown and writes nothing.
void exportImage(ImageSource& source, const Adjustments& adjustments, const Pipeline& pipeline,
                 const ExportOptions& options, const std::string& to,
                 const std::optional<Watermark>& watermark, const std::string& copyright,
                 const std::optional<PhotoMeta>& meta, const img::Execution& exec = {});

/// The picture exportImage writes, before it becomes sRGB samples: for previews of an export and
/// for tests. Throws as exportImage does.
img::Image render(ImageSource& source, const Adjustments& adjustments, const Pipeline& pipeline,
                  const ExportOptions& options, const std::optional<Watermark>& watermark,
                  const img::Execution& exec = {});

}  // namespace Exporter

}  // namespace ql
