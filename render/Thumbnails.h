// The library's small pictures: one shared cache of 360-pixel thumbnails, read from the embedded
// preview where a file has one, at most four files at a time.
#pragma once

#include <QCache>
#include <QFuture>
#include <QThreadPool>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "imaging/Image.h"

namespace ql {

/// An 8-bit sRGB picture: small enough that thousands fit in memory.
struct Thumb {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;  // width × height × 3
};
using ThumbPtr = std::shared_ptr<const Thumb>;

class Thumbnails {
  public:
    static constexpr int kMaxPixelSize = 360;
    static constexpr int kCacheLimit = 3000;
    static constexpr int kConcurrentReads = 4;

    using Reader = std::function<ThumbPtr(const std::string& path)>;
    explicit Thumbnails(Reader reader = read, int cacheLimit = kCacheLimit);
    /// The one instance the library shares.
    static Thumbnails& shared();

    /// The thumbnail, from the cache at once or read on the thumbnail pool; null when the file
    /// gives none.
    QFuture<ThumbPtr> load(const std::string& path);
    /// The cached thumbnail, or null.
    ThumbPtr cached(const std::string& path) const;

    /// The file's thumbnail, at most 360 pixels long, upright: its embedded preview when that
    /// is large enough, otherwise its pixels decoded at the smallest scale that covers 360.
    static ThumbPtr read(const std::string& path);
    /// A picture scaled to 360 pixels on its long edge (whole pixels, truncated) when longer;
    /// otherwise as it is.
    static ThumbPtr shrink(const img::Image& image);

  private:
    Reader reader_;
    mutable std::mutex mutex_;
    QCache<QString, ThumbPtr> cache_;
    QThreadPool pool_;
};

}  // namespace ql
