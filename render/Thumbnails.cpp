#include "Thumbnails.h"

#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>

#include "ImageSource.h"
#include "imaging/LanczosScale.h"
#include "imaging/Orientation.h"
#include "imaging/codec/DecodeError.h"
#include "imaging/codec/FileBytes.h"
#include "imaging/codec/HeifCodec.h"
#include "imaging/codec/ImageDecode.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/codec/Metadata.h"
#include "imaging/codec/OutputSamples.h"
#include "imaging/raw/RawDecoder.h"

namespace ql {

Thumbnails::Thumbnails(Reader reader, int cacheLimit)
    : reader_(std::move(reader)), cache_(std::max(1, cacheLimit)) {
    // The pool's size is the limit on simultaneous reads: a library scrolled quickly queues
    // its files instead of opening hundreds at once.
    pool_.setMaxThreadCount(kConcurrentReads);
}

Thumbnails& Thumbnails::shared() {
    static Thumbnails instance;
    return instance;
}

ThumbPtr Thumbnails::cached(const std::string& path) const {
    std::lock_guard lock(mutex_);
    const ThumbPtr* hit = cache_.object(QString::fromStdString(path));
    return hit ? *hit : nullptr;
}

QFuture<ThumbPtr> Thumbnails::load(const std::string& path) {
    if (ThumbPtr hit = cached(path)) return QtFuture::makeReadyFuture(hit);
    return QtConcurrent::run(&pool_, [this, path]() -> ThumbPtr {
        ThumbPtr thumb;
        try {
            thumb = reader_(path);
        } catch (...) {
            return nullptr;  // background reads fail quietly: no thumbnail
        }
        if (thumb) {
            std::lock_guard lock(mutex_);
            cache_.insert(QString::fromStdString(path), new ThumbPtr(thumb));
        }
        return thumb;
    });
}

ThumbPtr Thumbnails::shrink(const img::Image& image) {
    if (image.empty()) return nullptr;
    img::Image small = image;
    if (image.longEdge() > kMaxPixelSize) {
        const double s = double(kMaxPixelSize) / image.longEdge();
        small = img::resize(image, std::max(1, int(image.width() * s)),
                            std::max(1, int(image.height() * s)), img::Execution{1});
    }
    auto thumb = std::make_shared<Thumb>();
    thumb->width = small.width();
    thumb->height = small.height();
    thumb->rgb.resize(small.pixelCount() * 3);
    for (int y = 0; y < small.height(); ++y)
        img::toSrgb8(small.row(y), small.width(),
                     thumb->rgb.data() + size_t(y) * size_t(small.width()) * 3, 3);
    return thumb;
}

namespace {

// A JPEG decoded at the smallest DCT scale that still covers the thumbnail.
img::Image smallJpeg(std::span<const uint8_t> jpeg) {
    const img::JpegHeader h = img::readJpegHeader(jpeg);
    return img::decodeJpeg(jpeg,
                           img::jpegReductionFor(h.width, h.height, Thumbnails::kMaxPixelSize),
                           img::Execution{1});
}

}  // namespace

ThumbPtr Thumbnails::read(const std::string& path) {
    try {
        if (hasRawExtension(path)) {
            if (auto raw = img::RawDecoder::open(path)) {
                const std::vector<uint8_t> jpeg = raw->embeddedJpeg();
                if (!jpeg.empty()) {
                    const img::Image preview = smallJpeg(jpeg);
                    const int full = std::max(raw->facts().width, raw->facts().height);
                    if (preview.longEdge() >= std::min(kMaxPixelSize, full))
                        return shrink(img::orient(preview, raw->facts().orientation));
                }
                // No usable preview: develop the sensor data at half size.
                const img::Image developed =
                    raw->develop(raw->facts().asShotMultipliers, true, img::Execution{1});
                return shrink(developed);
            }
        }
        const std::vector<uint8_t> bytes = img::readFileBytes(path);
        const img::ImageHeader header = img::readImageHeader(bytes);
        if (header.kind == img::FileKind::heif) {
            const img::Image embedded = img::decodeHeifThumbnail(bytes);
            if (embedded.longEdge() >= kMaxPixelSize) return shrink(embedded);
        }
        const img::Image image = img::decodeImage(bytes, kMaxPixelSize, img::Execution{1});
        if (header.upright) return shrink(image);
        const int orientation = img::Metadata::fromBytes(bytes.data(), bytes.size()).orientation();
        return shrink(img::orient(image, orientation, img::Execution{1}));
    } catch (const img::DecodeError&) {
        return nullptr;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace ql
