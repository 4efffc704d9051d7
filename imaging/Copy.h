// A plain copy: the memory-bound floor that every pass is measured against.
#pragma once

#include "Execution.h"
#include "Image.h"

namespace ql::img {

/// A deep copy of the pixels.
Image copy(const Image& input, const Execution& exec = {});

}  // namespace ql::img
