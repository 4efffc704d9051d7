// The engine's picture: 32-bit float RGBA, premultiplied alpha, linear light in extended linear
// sRGB (values may pass 1 or go below 0), row 0 at the top, origin at the top left.
#pragma once

#include <cstddef>
#include <memory>

namespace ql::img {

struct Pixel {
    float r = 0, g = 0, b = 0, a = 0;
    bool operator==(const Pixel&) const = default;
};

/// A cheap handle: copies share the pixels. Pixels are written only by the function that created
/// the image, before it hands it out; after that an image is immutable, so returning the input
/// unchanged costs nothing. The one exception is resultFor: pixels nobody else can see any more.
class Image {
  public:
    Image() = default;
    /// A new image of the given size, every channel 0 (transparent black). Sizes below 1 give an
    /// empty image. A large one is fresh memory that the system maps only where it is written:
    /// for a picture that stays mostly black, such as the mask of one face, the black costs
    /// neither a pass over memory nor resident memory, and reading it is cheap.
    Image(int width, int height);
    /// A new image filled with one colour.
    static Image filled(int width, int height, Pixel colour);
    /// A new image whose pixels are left unset, for an operation that writes every one of them:
    /// clearing first would cost a pass over memory.
    static Image forOverwrite(int width, int height);
    /// Where an operation that took `input` by value writes its result: into the input's own
    /// pixels when its caller handed over the only handle to them (with std::move), else into
    /// new pixels of the same size, unset. Whoever writes in place reads each pixel before it
    /// writes it, and never writes one it still has to read.
    static Image resultFor(const Image& input);
    /// The same for two inputs of one size: the first's pixels, else the second's, else new.
    static Image resultFor(const Image& first, const Image& second);

    int width() const { return width_; }
    int height() const { return height_; }
    bool empty() const { return width_ <= 0 || height_ <= 0; }
    /// The long edge, L: the number every radius of the engine scales with.
    int longEdge() const { return width_ > height_ ? width_ : height_; }
    size_t pixelCount() const { return size_t(width_) * size_t(height_); }

    /// Four floats per pixel, rows packed without padding.
    const float* data() const { return data_.get(); }
    float* data() { return data_.get(); }
    const float* row(int y) const { return data_.get() + size_t(y) * size_t(width_) * 4; }
    float* row(int y) { return data_.get() + size_t(y) * size_t(width_) * 4; }

    Pixel at(int x, int y) const {
        const float* p = row(y) + size_t(x) * 4;
        return {p[0], p[1], p[2], p[3]};
    }
    void set(int x, int y, Pixel v) {
        float* p = row(y) + size_t(x) * 4;
        p[0] = v.r, p[1] = v.g, p[2] = v.b, p[3] = v.a;
    }

    /// True when both handles share the same pixels (the "input returned untouched" case).
    bool sharesPixelsWith(const Image& other) const { return data_ == other.data_; }

  private:
    struct Unset {};
    Image(int width, int height, Unset);

    int width_ = 0;
    int height_ = 0;
    std::shared_ptr<float[]> data_;
};

/// One channel of a picture: width × height floats, rows packed, from the same reused memory as
/// pictures; for operations that judge brightness alone and so work on a quarter of the data.
/// Unlike Image, its values are written after creation by whoever holds it.
class Plane {
  public:
    Plane() = default;
    /// Values left unset, for an operation that writes every one; sizes below 1 give an empty
    /// plane.
    static Plane forOverwrite(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }
    bool empty() const { return width_ <= 0 || height_ <= 0; }
    const float* row(int y) const { return data_.get() + size_t(y) * size_t(width_); }
    float* row(int y) { return data_.get() + size_t(y) * size_t(width_); }

  private:
    int width_ = 0;
    int height_ = 0;
    std::shared_ptr<float[]> data_;
};

/// Luma weights of linear sRGB (Rec. 709).
inline constexpr float lumaR = 0.2126f, lumaG = 0.7152f, lumaB = 0.0722f;
inline float luma(float r, float g, float b) {
    return lumaR * r + lumaG * g + lumaB * b;
}

/// Returns the memory of freed pictures kept for reuse to the system: for work that follows a
/// render and allocates memory of other kinds (encoding a file), so that the kept pictures do not
/// add to its peak.
void releaseFreedPictures();

}  // namespace ql::img
