#include "Image.h"

#include <algorithm>

namespace ql::img {

Image::Image(int width, int height) {
    if (width <= 0 || height <= 0) return;
    width_ = width;
    height_ = height;
    const size_t floats = pixelCount() * 4;
    data_ = std::shared_ptr<float[]>(new float[floats]);
    std::fill_n(data_.get(), floats, 0.0f);
}

Image Image::filled(int width, int height, Pixel colour) {
    Image image(width, height);
    float* p = image.data();
    for (size_t i = 0, n = image.pixelCount(); i < n; ++i, p += 4) {
        p[0] = colour.r, p[1] = colour.g, p[2] = colour.b, p[3] = colour.a;
    }
    return image;
}

}  // namespace ql::img
