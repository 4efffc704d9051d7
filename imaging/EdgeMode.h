// What a neighbourhood operation sees beyond the picture's border.
#pragma once

namespace ql::img {

enum class EdgeMode {
    /// The border pixels extend outward for ever, so a blur keeps the picture's edges as they
    /// are instead of fading them.
    clamp,
    /// Outside is transparent black (every channel 0), so a blur fades the border.
    transparent,
};

}  // namespace ql::img
