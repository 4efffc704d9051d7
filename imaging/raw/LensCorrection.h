// Lens profile correction: distortion, lateral chromatic aberration and vignetting removed with the
// calibration data of the lensfun database.
#pragma once

#include <optional>
#include <string>

#include "imaging/Execution.h"
#include "imaging/Image.h"

struct lfCamera;
struct lfLens;

namespace ql::img {

struct LensCorrectionParams;

/// What the metadata says about one exposure.
struct LensShot {
    std::string cameraMake, cameraModel, lensModel;
    double focalLength = 0;  // mm
    double aperture = 0;     // f-number
    double distance = 1000;  // focus distance in metres
};

/// A camera and lens pairing the database knows. Cheap to copy: it points into the database, which
/// lives as long as the process.
class LensProfile {
  public:
    /// The best database match for the shot's camera and lens, or nothing when either is unknown.
    /// The database loads on the first call; safe to call from several threads.
    static std::optional<LensProfile> find(const LensShot& shot);

    /// The lens and camera model as the database names them.
    std::string lensName() const;
    std::string cameraName() const;

    /// Whether the lens has any calibration of each kind (at some focal length).
    bool hasDistortion() const;
    bool hasChromatic() const;
    bool hasVignetting() const;

  private:
    LensProfile(const lfCamera* camera, const lfLens* lens) : camera_(camera), lens_(lens) {}
    friend Image lensCorrection(const Image&, const LensCorrectionParams&, const Execution&);

    const lfCamera* camera_;
    const lfLens* lens_;
};

struct LensCorrectionParams {
    /// No profile: neutral.
    const LensProfile* profile = nullptr;
    /// Focal length, aperture and distance pick the calibration; the names are not used here.
    LensShot shot;
    bool distortion = true;  // geometric distortion
    bool vignetting = true;  // light fall-off towards the corners
    bool chromatic = true;   // lateral chromatic aberration (per-channel magnification)
};

/// Undoes the lens's faults in a linear-light image. The correction is defined relative to the
/// frame, so a reduced-size proxy gets the same correction as the full image. Vignetting scales the
/// colour (alpha stays); the geometry is resampled bilinearly, each colour channel from its own
/// position, and positions beyond the frame take the nearest border pixel. Neutral (input returned)
/// without a profile, with every correction off, when the calibration holds nothing for the shot,
/// and for images under 2×2 pixels. A focal length outside the lens's range is clamped to it; an
/// unknown (zero) focal length works for primes only; an unknown aperture skips vignetting.
Image lensCorrection(const Image& input, const LensCorrectionParams& p, const Execution& exec = {});

}  // namespace ql::img
