// The 24-megapixel photos the peer comparisons run on, made from the sample shoot.
#pragma once

#include <filesystem>
#include <string>

namespace ql::bench {

struct BenchPhotos {
    std::string jpeg, dng;
};

/// Writes a 6000 × 4000 JPEG (quality 92) and DNG into `dir`. The photographs of the sample shoot
/// are laid out as a mosaic at their native size, so the detail is a camera's and not an
/// upscale's. The DNG is an uncompressed Bayer mosaic of an APS-C camera's published matrices at
/// ISO 800, lit by D65.
BenchPhotos writeBenchPhotos(const std::filesystem::path& dir);

}  // namespace ql::bench
