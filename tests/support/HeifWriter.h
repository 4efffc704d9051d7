// Small HEIC files for tests, encoded with libheif.
#pragma once

#include <cstdint>
#include <vector>

namespace ql::testing {

/// An 8-bit RGB picture (width × height × 3) as HEIC bytes; throws std::runtime_error when no
/// HEVC encoder is available.
std::vector<uint8_t> encodeHeic(int width, int height, const std::vector<uint8_t>& rgb,
                                int quality = 90);

}  // namespace ql::testing
