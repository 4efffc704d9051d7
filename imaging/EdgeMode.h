// What lies beyond an image's border for operations that look past it.
#pragma once

namespace ql::img {

/// clamp: the border pixels extend outward, as an image clamped to its extent;
/// transparent: outside is transparent black.
enum class EdgeMode { clamp, transparent };

}  // namespace ql::img
