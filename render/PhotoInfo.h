// The shooting information of a photo (camera, lens, exposure, date), read from its metadata
// into values and their display forms.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "imaging/codec/Metadata.h"

namespace ql {

/// Every field is absent when the metadata lacks it or holds an unusable value (a zero
/// exposure time, an empty model name, an impossible date).
struct PhotoInfo {
    // Display forms: "Canon EOS 550D", "EF-S18-55mm f/3.5-5.6 IS", "ISO 3200", "1/250s",
    // "f/2.8", "50mm".
    std::optional<std::string> camera, lens, iso, shutter, aperture, focal;
    std::optional<bool> flashFired;
    /// "Manual", "Program", "Aperture priority", "Shutter priority", "Creative", "Action",
    /// "Portrait", "Landscape".
    std::optional<std::string> program;
    std::optional<bool> whiteBalanceManual;
    /// "Average", "Centre-weighted", "Spot", "Multi-spot", "Pattern", "Partial", "Other".
    std::optional<std::string> metering;
    /// Exposure compensation in EV.
    std::optional<double> exposureBias;
    std::optional<std::chrono::system_clock::time_point> captured;
    std::optional<double> shutterSeconds, fNumber;
    std::optional<int> isoValue;
    std::optional<double> focalMM;
};

/// Standard EXIF first, then XMP; the lens also from maker notes and from its focal and aperture
/// range.
PhotoInfo readInfo(const img::Metadata& metadata);

/// When the photo was taken: DateTimeOriginal, else DateTimeDigitized, else DateTime, each with
/// its sub-second and UTC-offset tags when present, else the XMP dates. A time without an offset
/// is read as local time. Years outside 1700..2200 count as absent.
std::optional<std::chrono::system_clock::time_point> captureDate(const img::Metadata& metadata);

/// "1/250s" below half a second (1/t rounded), "0.5s", "2.5s", "30.0s" from there.
std::string formatShutter(double seconds);
/// "f/2.8", "f/11.0".
std::string formatAperture(double fNumber);
/// "50mm", "18.5mm": one decimal, none when it is 0.
std::string formatFocal(double millimetres);
/// Make and model joined, the make left out when the model already names it
/// ("Canon" + "Canon EOS 550D"), the make's company suffixes dropped ("NIKON CORPORATION" ->
/// "NIKON"). Empty when both are empty.
std::string cameraName(std::string_view make, std::string_view model);

}  // namespace ql
