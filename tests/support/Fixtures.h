// Temporary folders, byte files and tiny tagged pictures for the tests.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace ql::testing {

/// A fresh folder under the system's temporary folder, removed with everything in it.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    std::string file(const std::string& name) const { return (path_ / name).string(); }
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes);
std::vector<uint8_t> readBytes(const std::string& path);

/// 8-bit RGB rows of a smooth picture with a distinct colour in each quadrant, so that a
/// rotation or mirror shows.
std::vector<uint8_t> quadrantRGB(int width, int height);

/// The payload of a JPEG APP1 segment ("Exif\0\0" and a little-endian TIFF block) holding only
/// the given Orientation value.
std::vector<uint8_t> exifWithOrientation(int orientation);

/// An ICC profile with Display P3 primaries and the sRGB curve, as phones embed.
std::vector<uint8_t> displayP3Profile();

/// `jpeg` with an APP1 segment holding `payload` right after its start marker.
std::vector<uint8_t> withApp1(const std::vector<uint8_t>& jpeg,
                              const std::vector<uint8_t>& payload);

}  // namespace ql::testing
