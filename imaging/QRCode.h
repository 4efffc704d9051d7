// QR code pictures for the gallery's address.
#pragma once

#include <string_view>

#include "Image.h"

namespace ql::img {

struct QRCodeParams {
    enum class Correction { low, medium, quartile, high };
    Correction correction = Correction::medium;
    int moduleSize = 8;  // pixels per module, 1…64
    int quietZone = 4;   // modules of white around the code, 0…16
};

/// Dark modules black, light ones and the quiet zone white, all opaque; the smallest version
/// that holds the text as 8-bit bytes. Text too long for any version, or empty, gives an empty
/// image.
Image qrCode(std::string_view text, const QRCodeParams& p = {});

/// Modules per side of the code in an image made with these parameters (0 when it is empty).
int qrModules(const Image& code, const QRCodeParams& p = {});

}  // namespace ql::img
