// Crossing between the engine's pictures and Qt's, for the code that lets Qt draw (text, PDF).
#pragma once

#include <QImage>

#include "imaging/Image.h"

namespace ql::img {

/// 8-bit sRGB-encoded, premultiplied (QImage::Format_RGBA8888_Premultiplied). Each pixel is
/// unpremultiplied, encoded and clamped, then premultiplied again by its clamped alpha, so a
/// colour never exceeds its alpha. An empty image gives a null QImage.
QImage toQImage(const Image& image);

/// Any QImage format to linear, premultiplied float; alpha is kept (1 for formats without it). A
/// null QImage gives an empty image.
Image fromQImage(const QImage& image);

}  // namespace ql::img
