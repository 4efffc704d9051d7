// What a decoder throws, and the size limits every decoder checks before it allocates.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace ql::img {

/// A file that is missing, unreadable, damaged or not an image this engine reads.
class DecodeError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The largest picture a decoder accepts: beyond the biggest medium-format sensors, and small
/// enough that a header claiming absurd dimensions cannot make us allocate tens of gigabytes.
inline constexpr int kMaxSide = 65535;
inline constexpr int64_t kMaxPixels = 250'000'000;

/// Throws DecodeError unless width × height is a picture we are willing to hold.
inline void checkDimensions(int64_t width, int64_t height) {
    if (width < 1 || height < 1) throw DecodeError("the image has no pixels");
    if (width > kMaxSide || height > kMaxSide || width * height > kMaxPixels)
        throw DecodeError("the image claims " + std::to_string(width) + " × " +
                          std::to_string(height) + " pixels, more than this program opens");
}

}  // namespace ql::img
