// The sRGB ICC profile that written files carry, so that every reader sees the same colours.
#pragma once

#include <cstdint>
#include <vector>

namespace ql::img {

/// The bytes of a compact sRGB profile, built once.
const std::vector<uint8_t>& srgbIccProfile();

}  // namespace ql::img
