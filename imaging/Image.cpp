#include "Image.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace ql::img {

namespace {

constexpr size_t kHugePage = size_t(2) << 20;

// Pictures of several megabytes live in 2 MB pages where the kernel allows it: a fresh 24 MP
// picture then costs a few hundred page faults instead of a hundred thousand, which on a
// virtual machine is most of the time a pass over a new picture takes.
std::shared_ptr<float[]> allocatePixels(size_t floats) {
    const size_t bytes = floats * sizeof(float);
    if (bytes < 2 * kHugePage) return std::make_shared_for_overwrite<float[]>(floats);
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    void* p = std::aligned_alloc(kHugePage, rounded);
    if (!p) throw std::bad_alloc();
    ::madvise(p, rounded, MADV_HUGEPAGE);  // advice only: refused, it stays ordinary pages
    return std::shared_ptr<float[]>(static_cast<float*>(p), [](float* q) { std::free(q); });
}

}  // namespace

Image::Image(int width, int height, Unset) {
    if (width <= 0 || height <= 0) return;
    width_ = width;
    height_ = height;
    data_ = allocatePixels(pixelCount() * 4);
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
