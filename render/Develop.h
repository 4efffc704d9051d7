// An edit applied to a base of its photo with the masks it uses: how every viewer of an edit
// (preview, zoom, export, the automatic editors' checks) turns a base into the edited picture.
#pragma once

#include "ImageSource.h"
#include "Pipeline.h"

namespace ql {

/// Only the masks the edit needs are made, drawn at the base's size from the people found once
/// for the photo. Empty for an empty base or when cancelled. A base handed over (std::move) is
/// developed in its own pixels.
img::Image develop(ImageSource& source, const Pipeline& pipeline, const Adjustments& adjustments,
                   img::Image base, bool cropping = true, const img::Execution& exec = {});

}  // namespace ql
