#include "Image.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

namespace ql::img {

namespace {

constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kMaxPooled = size_t(1) << 30;

// Freed pictures, kept for the next picture they can hold: a stage of the pipeline then writes
// into memory that is already mapped, instead of the kernel clearing fresh pages first, which
// costs as much as a pass over the picture. The smallest block that holds a request is taken,
// and only when it is at most half as large again, so a small picture never pins a large block.
// A request that nothing fits returns every block to the system before it allocates, so that
// kept blocks do not add to the peak of the pictures alive at one time; only a request far
// smaller than the kept blocks allocates beside them.
class PixelPool {
  public:
    struct Block {
        void* pixels = nullptr;
        size_t bytes = 0;
    };
    Block take(size_t bytes) {
        std::vector<Block> stale;
        {
            std::lock_guard lock(mutex_);
            auto best = blocks_.end();
            for (auto it = blocks_.begin(); it != blocks_.end(); ++it)
                if (it->bytes >= bytes && it->bytes <= bytes + bytes / 2 &&
                    (best == blocks_.end() || it->bytes < best->bytes))
                    best = it;
            if (best != blocks_.end()) {
                const Block block = *best;
                held_ -= block.bytes;
                blocks_.erase(best);
                return block;
            }
            // A picture far smaller than what waits here (a shrunk copy for a stage to judge
            // surroundings on) leaves the blocks for the full-size pictures that follow.
            if (bytes <= held_ / 8) return {};
            stale.swap(blocks_);
            held_ = 0;
        }
        release(stale);
        return {};
    }
    void releaseAll() {
        std::vector<Block> stale;
        {
            std::lock_guard lock(mutex_);
            stale.swap(blocks_);
            held_ = 0;
        }
        release(stale);
    }
    void give(Block block) {
        {
            std::lock_guard lock(mutex_);
            if (held_ + block.bytes <= kMaxPooled) {
                blocks_.push_back(block);
                held_ += block.bytes;
                return;
            }
        }
        std::free(block.pixels);
    }

  private:
    // Outside the lock: returning memory to the system can take a while.
    static void release(const std::vector<Block>& blocks) {
        for (const Block& b : blocks)
            std::free(b.pixels);
    }

    std::mutex mutex_;
    std::vector<Block> blocks_;
    size_t held_ = 0;
};

PixelPool& pool() {
    static auto* p = new PixelPool;  // never destroyed: pictures may outlive static destruction
    return *p;
}

// Pictures of several megabytes live in 2 MB pages where the kernel allows it: a fresh 24 MP
// picture then costs a few hundred page faults instead of a hundred thousand.
std::shared_ptr<float[]> allocatePixels(size_t floats) {
    const size_t bytes = floats * sizeof(float);
    if (bytes < 2 * kHugePage) return std::make_shared_for_overwrite<float[]>(floats);
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    PixelPool::Block block = pool().take(rounded);
    if (!block.pixels) {
        block = {std::aligned_alloc(kHugePage, rounded), rounded};
        if (!block.pixels) throw std::bad_alloc();
        // Advice only: refused, it stays ordinary pages.
        ::madvise(block.pixels, rounded, MADV_HUGEPAGE);
    }
    return std::shared_ptr<float[]>(static_cast<float*>(block.pixels),
                                    [block](float*) { pool().give(block); });
}

// Fresh anonymous pages read as zero and are backed only once written. They go back to the system
// when freed: pooled memory holds old pixels and is mapped whole, which is what pictures that
// write every pixel want and a mostly black one does not.
std::shared_ptr<float[]> allocateZeroedPixels(size_t floats) {
    const size_t bytes = floats * sizeof(float);
    if (bytes < 2 * kHugePage) return std::make_shared<float[]>(floats);
    const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    void* p = ::mmap(nullptr, rounded, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) throw std::bad_alloc();
    ::madvise(p, rounded, MADV_HUGEPAGE);
    return std::shared_ptr<float[]>(static_cast<float*>(p),
                                    [rounded](float* q) { ::munmap(q, rounded); });
}

}  // namespace

Image::Image(int width, int height, Unset) {
    if (width <= 0 || height <= 0) return;
    width_ = width;
    height_ = height;
    data_ = allocatePixels(pixelCount() * 4);
}

Image::Image(int width, int height) {
    if (width <= 0 || height <= 0) return;
    width_ = width;
    height_ = height;
    data_ = allocateZeroedPixels(pixelCount() * 4);
}

Image Image::forOverwrite(int width, int height) {
    return Image(width, height, Unset{});
}

// The count is exact when it is 1: no other handle exists that another thread could copy.
Image Image::resultFor(const Image& input) {
    if (input.data_.use_count() == 1) return input;
    return forOverwrite(input.width_, input.height_);
}

Image Image::resultFor(const Image& first, const Image& second) {
    if (first.data_.use_count() == 1) return first;
    return resultFor(second);
}

Image Image::filled(int width, int height, Pixel colour) {
    Image image(width, height, Unset{});
    float* p = image.data();
    for (size_t i = 0, n = image.pixelCount(); i < n; ++i, p += 4) {
        p[0] = colour.r, p[1] = colour.g, p[2] = colour.b, p[3] = colour.a;
    }
    return image;
}

Plane Plane::forOverwrite(int width, int height) {
    Plane plane;
    if (width <= 0 || height <= 0) return plane;
    plane.width_ = width;
    plane.height_ = height;
    plane.data_ = allocatePixels(size_t(width) * size_t(height));
    return plane;
}

void releaseFreedPictures() {
    pool().releaseAll();
}

}  // namespace ql::img
