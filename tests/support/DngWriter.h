// Minimal DNG writer for test fixtures and benchmarks: an uncompressed 16-bit Bayer raw with the
// colour, orientation and EXIF tags that raw readers look at, plus an optional JPEG preview.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "imaging/Image.h"

namespace ql::testing {

struct DngSpec {
    /// Sensor size in sites; both positive and even.
    int width = 64;
    int height = 48;
    /// Colours of the top-left 2x2 sites, row by row: RGGB, BGGR, GRBG or GBRG.
    std::string cfa = "RGGB";
    /// Raw values of black and of saturation; 0 <= black < white <= 65535.
    int blackLevel = 256;
    int whiteLevel = 16383;
    /// XYZ -> camera, row-major, written as ColorMatrix1/2. The default makes the camera see
    /// linear sRGB under D65.
    std::array<double, 9> colorMatrix1{3.2404542, -1.5371385, -0.4985314, -0.9692660, 1.8760108,
                                       0.0415560, 0.0556434,  -0.2040259, 1.0572252};
    /// EXIF LightSource codes: 17 = Standard A, 21 = D65.
    int calibrationIlluminant1 = 21;
    std::optional<std::array<double, 9>> colorMatrix2;
    int calibrationIlluminant2 = 21;
    /// Camera-space white under the shot's light; readers take 1/x as the white balance.
    std::array<double, 3> asShotNeutral{0.5, 1.0, 0.7};
    /// TIFF Orientation 1..8; 0 omits the tag.
    int orientation = 1;
    std::string make = "Canon";
    std::string model = "Canon EOS 550D";
    std::string uniqueCameraModel = "Canon EOS 550D";
    /// EXIF fields, each omitted when empty, 0, or (for the codes) negative.
    std::string lensModel;
    int iso = 0;
    double exposureTime = 0;  // seconds
    double fNumber = 0;
    double focalLength = 0;        // mm
    double exposureBias = 0;       // EV
    std::string dateTimeOriginal;  // "YYYY:MM:DD HH:MM:SS"
    int flash = -1;
    int exposureProgram = -1;
    int meteringMode = -1;
    int whiteBalance = -1;
    /// Embedded preview, 8-bit RGB rows from the top, stored in IFD0 as a baseline JPEG. Without
    /// one, IFD0 holds the raw itself.
    int previewWidth = 0;
    int previewHeight = 0;
    std::vector<uint8_t> previewRGB;
};

/// A DNG description with the published XYZ→camera matrices of a common APS-C camera: ColorMatrix1
/// under Standard A, ColorMatrix2 under D65.
DngSpec apscCameraSpec(int width, int height);

/// Linear camera RGB at a sensor site, 0..1 from black to white level. Only the channel of the
/// site's colour is used, clamped to 0..1 (NaN as 0). Called once per site, row by row; an empty
/// function gives a black frame.
using CameraScene = std::function<std::array<float, 3>(int x, int y)>;

/// The whole file. Throws std::invalid_argument for an inconsistent spec.
std::vector<uint8_t> dngBytes(const DngSpec& spec, const CameraScene& scene);

/// dngBytes written to `path`; throws std::runtime_error when the file cannot be written.
void writeDng(const std::string& path, const DngSpec& spec, const CameraScene& scene);

/// A DNG of the camera of apscCameraSpec at `iso` that saw `scene` (linear sRGB, lit by D65), the
/// scene's white at 90 % of the sensor's range.
void writeDngOfScene(const std::string& path, const img::Image& scene, int iso);

/// Baseline 4:2:0 JPEG of 8-bit RGB rows. Throws std::invalid_argument when `rgb` does not hold
/// width * height * 3 bytes, std::runtime_error when encoding fails.
std::vector<uint8_t> encodeJpeg(int width, int height, const std::vector<uint8_t>& rgb,
                                int quality = 90);

}  // namespace ql::testing
