// What the automatic editors read of an opened photo besides its pixels.
#pragma once

#include <optional>

#include "render/ImageSource.h"
#include "render/PhotoInfo.h"

namespace ql {

struct PhotoFacts {
    bool isRAW = false;
    double asShotTemperature = 0;  // kelvin, RAW only
    double asShotTint = 0;
    PhotoInfo info;
    /// Set when a RAW file carries the camera's own look, learnt from its embedded JPEG.
    std::optional<ImageSource::LookFit> cameraLook;

    static PhotoFacts of(ImageSource& source);

    /// The digits of the ISO text read as a number ("ISO 3200" → 3200); 0 when it has none.
    int isoNumber() const;
};

}  // namespace ql
