// White balance of raw images as a kelvin/tint model seen through the camera's own colour
// matrices: the conversions between an illuminant's chromaticity, its correlated colour
// temperature and tint, and the camera's neutral (the raw RGB of a grey lit by it).
#pragma once

#include <array>
#include <optional>

namespace ql::img {

/// CIE 1931 xy.
struct Chromaticity {
    double x, y;
};

inline constexpr Chromaticity kD50White{0.34567, 0.35850};
inline constexpr Chromaticity kD65White{0.31271, 0.32902};

/// Correlated colour temperature in kelvin, and tint: the signed distance from the Planckian
/// locus along the isotherm in CIE 1960 uv, times 3000. Positive tint is light on the green
/// side of the locus, whose correction adds magenta; negative is magenta light. D65 reads about
/// 6504 K, tint +10.
struct TemperatureTint {
    double temperature;
    double tint;
};

/// The model's range: the isotherm table, 600 mired (1667 K) up to 100000 K, and tints within
/// ±300, beyond which isotherms of the table start to cross.
inline constexpr double kMinKelvin = 1e6 / 600;
inline constexpr double kMaxKelvin = 100000;
inline constexpr double kMaxTint = 300;

/// Robertson's method over the 31 published isotherms. Light beyond the range reads as its
/// nearest limit; non-finite or impossible xy reads as D65.
TemperatureTint temperatureTint(Chromaticity white);

/// The inverse of temperatureTint, exact to about 1e-10 within the range. Inputs are clamped to
/// it first; a NaN temperature acts as 6504 K, a NaN tint as 0.
Chromaticity chromaticity(TemperatureTint tt);

/// Row-major 3×3.
using Matrix3 = std::array<double, 9>;

/// A camera's colour calibration: each matrix maps XYZ to camera RGB under an illuminant of
/// the given temperature in kelvin.
struct CameraCalibration {
    Matrix3 colorMatrix1{1, 0, 0, 0, 1, 0, 0, 0, 1};
    double illuminant1 = 6504;
    std::optional<Matrix3> colorMatrix2;
    double illuminant2 = 2856;
};

/// Temperature in kelvin of an EXIF LightSource code: standard illuminants at their correlated
/// temperatures, fluorescent classes at the middle of their range. 0 for codes that name no
/// illuminant (0 unknown, 255 other, undefined codes), so that the caller can fall back.
double illuminantKelvin(int exifLightSource);

/// The XYZ-to-camera matrix for light of chromaticity `white`. With two usable matrices (both
/// temperatures positive and different) it is interpolated linearly in mired between them and
/// clamped at each end; otherwise colorMatrix1.
Matrix3 colorMatrixAt(const CameraCalibration& cal, Chromaticity white);

/// Camera RGB of a neutral surface under `white`, scaled to green = 1; (1, 1, 1) when the
/// matrix gives no positive green. Red or blue may be zero or negative for light the camera
/// cannot see.
std::array<double, 3> cameraNeutral(const CameraCalibration& cal, Chromaticity white);

/// The white whose camera neutral is `neutral` (any scale). The matrix depends on the white, so
/// this iterates from D50 to a fixed point, at most 30 steps. D65 when a component of the
/// neutral is not positive and finite, or the matrix is singular.
Chromaticity neutralChromaticity(const CameraCalibration& cal, std::array<double, 3> neutral);

/// Temperature and tint of the light that as-shot RGB multipliers (1 / neutral, any scale)
/// correct; the reading of D65 when a multiplier is not positive and finite.
TemperatureTint temperatureTint(const CameraCalibration& cal, std::array<double, 3> multipliers);

/// RGB multipliers, green = 1, that neutralise light of the given temperature and tint. Red and
/// blue are capped at kMaxMultiplier: strongly green warm light (2500 K, tint +90 for a typical
/// camera) lies beyond what the camera sees, its neutral red or blue at or below zero.
inline constexpr double kMaxMultiplier = 100;
std::array<double, 3> multipliers(const CameraCalibration& cal, TemperatureTint tt);

}  // namespace ql::img
