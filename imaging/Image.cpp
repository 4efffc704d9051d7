#include "Image.h"

#include <algorithm>

namespace ql::img {

Image::Image(int width, int height, Unset) {
    if (width <= 0 || height <= 0) return;
    width_ = width;
    height_ = height;
    data_ = std::make_shared_for_overwrite<float[]>(pixelCount() * 4);
}

Image::Image(int width, int height) : Image(width, height, Unset{}) {
    if (data_) std::fill_n(data_.get(), pixelCount() * 4, 0.0f);
}

Image Image::forOverwrite(int width, int height) {
    return Image(width, height, Unset{});
}

Image Image::filled(int width, int height, Pixel colour) {
    Image image(width, height, Unset{});
    float* p = image.data();
    for (size_t i = 0, n = image.pixelCount(); i < n; ++i, p += 4) {
        p[0] = colour.r, p[1] = colour.g, p[2] = colour.b, p[3] = colour.a;
    }
    return image;
}

}  // namespace ql::img
