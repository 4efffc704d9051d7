#include "Metadata.h"

#include <cstdio>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <mutex>
#include <set>

#include "MetadataStore.h"

namespace ql::img {

namespace {

using detail::initExiv2;
using detail::MetadataStore;

constexpr std::string_view kSpace = " \t\r\n\v\f";

std::string_view trimmed(std::string_view s) {
    const size_t b = s.find_first_not_of(kSpace);
    if (b == std::string_view::npos) return {};
    return s.substr(b, s.find_last_not_of(kSpace) - b + 1);
}

std::string clean(std::string_view s) {
    return std::string(trimmed(s.substr(0, s.find('\0'))));
}

std::optional<std::string> nonEmpty(std::string s) {
    if (s.empty()) return std::nullopt;
    return s;
}

// "2.8", "28/10", "-1/3"; the whole text must be the number.
std::optional<double> parseNumber(std::string_view s) {
    const auto one = [](std::string_view t, double& v) {
        if (!t.empty() && t.front() == '+') t.remove_prefix(1);
        const auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
        return !t.empty() && ec == std::errc() && end == t.data() + t.size();
    };
    s = trimmed(s);
    double num = 0, den = 1;
    const size_t slash = s.find('/');
    if (slash == std::string_view::npos
            ? !one(s, num)
            : !one(s.substr(0, slash), num) || !one(s.substr(slash + 1), den))
        return std::nullopt;
    const double v = num / den;
    if (!std::isfinite(v)) return std::nullopt;
    return v;
}

bool isIntegral(Exiv2::TypeId t) {
    switch (t) {
        case Exiv2::unsignedByte:
        case Exiv2::unsignedShort:
        case Exiv2::unsignedLong:
        case Exiv2::signedByte:
        case Exiv2::signedShort:
        case Exiv2::signedLong:
        case Exiv2::tiffIfd:
        case Exiv2::unsignedLongLong:
        case Exiv2::signedLongLong:
        case Exiv2::tiffIfd8:
            return true;
        default:
            return false;
    }
}

template <class R>
std::optional<double> ratio(const Exiv2::Value& v, size_t i) {
    const auto* r = dynamic_cast<const Exiv2::ValueType<R>*>(&v);
    if (!r || i >= r->value_.size()) return std::nullopt;
    const double x = double(r->value_[i].first) / double(r->value_[i].second);
    if (!std::isfinite(x)) return std::nullopt;
    return x;
}

std::optional<double> numberOf(const Exiv2::Value& v, size_t i) {
    const Exiv2::TypeId t = v.typeId();
    if (t == Exiv2::unsignedRational) return ratio<Exiv2::URational>(v, i);
    if (t == Exiv2::signedRational) return ratio<Exiv2::Rational>(v, i);
    if (isIntegral(t)) {
        if (i >= size_t(v.count())) return std::nullopt;
        return double(v.toLong(long(i)));
    }
    if (t == Exiv2::tiffFloat || t == Exiv2::tiffDouble) {
        if (i >= size_t(v.count())) return std::nullopt;
        const double x = v.toFloat(long(i));
        if (!std::isfinite(x)) return std::nullopt;
        return x;
    }
    if (t == Exiv2::undefined) return std::nullopt;
    if (t == Exiv2::xmpBag || t == Exiv2::xmpSeq || t == Exiv2::xmpAlt) {
        if (i >= size_t(v.count())) return std::nullopt;
        return parseNumber(v.toString(long(i)));
    }
    if (i != 0) return std::nullopt;
    return parseNumber(clean(v.toString()));
}

// The value as the file has it, for text.
std::string storedText(const Exiv2::Value& v) {
    if (const auto* c = dynamic_cast<const Exiv2::CommentValue*>(&v)) return c->comment();
    if (v.typeId() == Exiv2::langAlt) return v.toString(0);  // the x-default text
    return v.toString();
}

// Cut to n bytes without splitting a UTF-8 sequence.
std::string shortened(std::string s, size_t n) {
    if (s.size() <= n) return s;
    s.resize(n);
    while (!s.empty() && (static_cast<unsigned char>(s.back()) & 0xC0) == 0x80)
        s.pop_back();
    if (!s.empty() && static_cast<unsigned char>(s.back()) >= 0xC0) s.pop_back();
    return s + "\xE2\x80\xA6";
}

std::shared_ptr<const MetadataStore> load(Exiv2::Image::AutoPtr image) {
    // Video parsers are of no use to a photo editor and the least hardened against bad input.
    if (!image.get() || image->mimeType().starts_with("video/")) return nullptr;
    image->readMetadata();
    auto store = std::make_shared<MetadataStore>();
    store->exif = image->exifData();
    store->iptc = image->iptcData();
    store->xmp = image->xmpData();
    if (image->byteOrder() == Exiv2::bigEndian) store->byteOrder = Exiv2::bigEndian;
    if (store->exif.empty() && store->iptc.empty() && store->xmp.empty()) return nullptr;
    return store;
}

// Tags of the first IFD that describe the source file's own pixels, encoding or raw processing:
// wrong for any other file.
bool isSourceStructure(uint16_t tag) {
    static const std::set<uint16_t> tags = {
        0x00fe, 0x00ff, 0x0100, 0x0101, 0x0102, 0x0103, 0x0106, 0x0107, 0x0108, 0x0109,
        0x010a, 0x0111, 0x0115, 0x0116, 0x0117, 0x0118, 0x0119, 0x011c, 0x0122, 0x0123,
        0x0124, 0x0125, 0x013d, 0x0140, 0x0142, 0x0143, 0x0144, 0x0145, 0x014a, 0x0152,
        0x0153, 0x0154, 0x0155, 0x015b, 0x0200, 0x0201, 0x0202, 0x0203, 0x0205, 0x0206,
        0x0207, 0x0208, 0x0209, 0x0211, 0x0212, 0x0214, 0x02bc, 0x828d, 0x828e, 0x83bb,
        0x8649, 0x8773, 0x9216, 0x935c, 0xea1c, 0xea1d};
    if (tags.contains(tag)) return true;
    // DNG processing tags, except those naming the camera, the lens or the original file.
    if (tag >= 0xc612 && tag <= 0xcdff)
        return tag != 0xc614 && tag != 0xc615 && tag != 0xc62f && tag != 0xc630 && tag != 0xc68b;
    return false;
}

Exiv2::ExifData exportExif(const Exiv2::ExifData& source, int width, int height) {
    Exiv2::ExifData exif;
    for (const auto& d : source)
        if (detail::keepForExport(d)) exif.add(d);
    const auto has = [&](const char* key) {
        return exif.findKey(Exiv2::ExifKey(key)) != exif.end();
    };
    // Turned upright where the source says how to turn it; absent already means upright, and a
    // file that had, say, only a copyright keeps exactly that.
    if (has("Exif.Image.Orientation")) exif["Exif.Image.Orientation"] = uint16_t(1);
    if (width > 0 && height > 0) {
        if (has("Exif.Photo.PixelXDimension")) exif["Exif.Photo.PixelXDimension"] = uint32_t(width);
        if (has("Exif.Photo.PixelYDimension"))
            exif["Exif.Photo.PixelYDimension"] = uint32_t(height);
    }
    return exif;
}

Exiv2::XmpData exportXmp(const Exiv2::XmpData& source, int width, int height) {
    Exiv2::XmpData xmp;
    for (const auto& d : source)
        if (detail::keepForExport(d)) xmp.add(d);
    const auto has = [&](const char* key) { return xmp.findKey(Exiv2::XmpKey(key)) != xmp.end(); };
    if (has("Xmp.tiff.Orientation")) xmp["Xmp.tiff.Orientation"] = std::string("1");
    if (width > 0 && height > 0 && has("Xmp.exif.PixelXDimension")) {
        xmp["Xmp.exif.PixelXDimension"] = std::to_string(width);
        xmp["Xmp.exif.PixelYDimension"] = std::to_string(height);
    }
    return xmp;
}

// Entries of `over` replace those of `base` with the same key; the rest of `base` stays.
template <class Data>
void overlay(Data& base, const Data& over) {
    std::set<std::string> keys;
    for (const auto& d : over)
        keys.insert(d.key());
    for (auto it = base.begin(); it != base.end();)
        it = keys.contains(it->key()) ? base.erase(it) : std::next(it);
    for (const auto& d : over)
        base.add(d);
}

Exiv2::Blob encode(const Exiv2::ExifData& exif, Exiv2::ByteOrder order) {
    Exiv2::Blob blob;
    Exiv2::ExifParser::encode(blob, order, exif);
    return blob;
}

// An APP1 segment holds 65535 bytes less its length field and the "Exif\0\0" header.
constexpr size_t kMaxApp1Tiff = 65535 - 2 - 6;

// Shrinks `exif` until its encoding fits an APP1 segment; returns that encoding, or nothing.
Exiv2::Blob fitApp1(Exiv2::ExifData& exif, Exiv2::ByteOrder order) {
    Exiv2::Blob blob = encode(exif, order);
    while (blob.size() > kMaxApp1Tiff && !exif.empty()) {
        // Drop the largest entries until their bytes (plus 12 for each IFD entry) cover the excess.
        std::vector<Exiv2::Exifdatum> all(exif.begin(), exif.end());
        std::vector<size_t> bySize(all.size());
        for (size_t i = 0; i < all.size(); ++i)
            bySize[i] = i;
        std::stable_sort(bySize.begin(), bySize.end(),
                         [&](size_t a, size_t b) { return all[a].size() > all[b].size(); });
        std::vector<bool> drop(all.size());
        size_t freed = 0;
        for (size_t k = 0; k < bySize.size() && freed < blob.size() - kMaxApp1Tiff; ++k) {
            drop[bySize[k]] = true;
            freed += size_t(all[bySize[k]].size()) + 12;
        }
        exif.clear();
        for (size_t i = 0; i < all.size(); ++i)
            if (!drop[i]) exif.add(all[i]);
        blob = exif.empty() ? Exiv2::Blob{} : encode(exif, order);
    }
    return blob;
}

uint32_t crc32(const uint8_t* p, size_t n, uint32_t crc = 0xffffffffu) {
    static const auto table = [] {
        std::array<uint32_t, 256> t{};
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k)
                c = c & 1 ? 0xedb88320u ^ (c >> 1) : c >> 1;
            t[i] = c;
        }
        return t;
    }();
    for (size_t i = 0; i < n; ++i)
        crc = table[(crc ^ p[i]) & 0xff] ^ (crc >> 8);
    return crc;
}

void putBE32(std::ostream& out, uint32_t v) {
    const char b[4] = {char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    out.write(b, 4);
}

// Exiv2 0.27 stores EXIF in PNG as a text chunk only it and a few tools read; the standard is
// an eXIf chunk before the image data. Rewrites the file with one right after IHDR.
bool insertPngExif(const std::string& path, const Exiv2::Blob& tiff, std::string& why) {
    namespace fs = std::filesystem;
    const std::string tmp = path + ".ql-exif";
    {
        std::ifstream in(path, std::ios::binary);
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        char sig[8];
        if (!in.read(sig, 8) || std::memcmp(sig, "\x89PNG\r\n\x1a\n", 8) != 0 || !out) {
            why = "not a PNG file after writing its metadata";
            out.close();
            fs::remove(tmp);
            return false;
        }
        out.write(sig, 8);
        bool first = true, ended = false;
        std::vector<char> buffer(1 << 16);
        unsigned char head[8];
        while (!ended && in.read(reinterpret_cast<char*>(head), 8)) {
            const uint32_t length = uint32_t(head[0]) << 24 | uint32_t(head[1]) << 16 |
                                    uint32_t(head[2]) << 8 | head[3];
            const std::string_view type(reinterpret_cast<const char*>(head + 4), 4);
            if (length > 0x7fffffffu || (first && type != "IHDR")) break;
            ended = type == "IEND";
            if (type == "eXIf") {
                in.seekg(std::streamoff(length) + 4, std::ios::cur);
                continue;
            }
            out.write(reinterpret_cast<const char*>(head), 8);
            for (uint64_t left = uint64_t(length) + 4; left > 0 && in;) {
                const auto n = std::streamsize(std::min<uint64_t>(left, buffer.size()));
                in.read(buffer.data(), n);
                out.write(buffer.data(), in.gcount());
                left -= uint64_t(in.gcount());
            }
            if (first) {
                putBE32(out, uint32_t(tiff.size()));
                const uint32_t crc = crc32(tiff.data(), tiff.size(),
                                           crc32(reinterpret_cast<const uint8_t*>("eXIf"), 4));
                out.write("eXIf", 4);
                out.write(reinterpret_cast<const char*>(tiff.data()), std::streamsize(tiff.size()));
                putBE32(out, ~crc);
                first = false;
            }
        }
        out.close();
        if (!ended || !in || !out) {
            why = "PNG file is damaged or could not be rewritten";
            fs::remove(tmp);
            return false;
        }
    }
    std::error_code ec;
    fs::permissions(tmp, fs::status(path, ec).permissions(), ec);
    fs::rename(tmp, path, ec);
    if (ec) {
        why = "cannot replace the file: " + ec.message();
        fs::remove(tmp, ec);
        return false;
    }
    return true;
}

}  // namespace

namespace detail {

namespace {

std::recursive_mutex xmpMutex;

void lockXmp(void* mutex, bool lock) {
    auto* m = static_cast<std::recursive_mutex*>(mutex);
    if (lock)
        m->lock();
    else
        m->unlock();
}

bool isMakerNote(const Exiv2::Exifdatum& d) {
    const std::string group = d.groupName();
    return group == "MakerNote" || Exiv2::ExifTags::isMakerGroup(group) ||
           d.key() == "Exif.Photo.MakerNote";
}

}  // namespace

// No log output (bad files are expected), the XMP toolkit serialised, HEIF/AVIF/CR3 containers
// enabled.
void initExiv2() {
    static std::once_flag once;
    std::call_once(once, [] {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize(lockXmp, &xmpMutex);
        Exiv2::enableBMFF(true);
    });
}

// Maker notes go as well: their offsets and private encodings are only safe in the camera's
// own file, and they hold the camera's view of the unedited picture.
bool keepForExport(const Exiv2::Exifdatum& d) {
    if (isMakerNote(d)) return false;
    const std::string group = d.groupName();
    if (group == "Image") return !isSourceStructure(d.tag());
    // Compression ratio of the source, padding.
    if (group == "Photo") return d.tag() != 0x9102 && d.tag() != 0xea1c && d.tag() != 0xea1d;
    if (group == "Iop") return d.tag() != 0x1001 && d.tag() != 0x1002;  // related image size
    // The thumbnail, sub-images and raw IFDs go.
    return group == "GPSInfo";
}

// Another raw converter's development settings (crs:) would be applied a second time by a reader
// that knows them.
bool keepForExport(const Exiv2::Xmpdatum& d) {
    const std::string key = d.key();
    return !key.starts_with("Xmp.xmp.Thumbnails") && !key.starts_with("Xmp.crs.") &&
           !key.starts_with("Xmp.crss.") && key != "Xmp.tiff.ImageWidth" &&
           key != "Xmp.tiff.ImageLength";
}

}  // namespace detail

Metadata Metadata::read(const std::string& path) {
    try {
        // Devices and pipes could block, directories cannot be read, and Exiv2 would fetch
        // http:// names itself: only regular files go in, through a plain file reader.
        std::error_code ec;
        if (!std::filesystem::is_regular_file(path, ec)) return {};
        initExiv2();
        Exiv2::BasicIo::AutoPtr io(new Exiv2::FileIo(path));
        return Metadata(load(Exiv2::ImageFactory::open(io)));
    } catch (...) {
        return {};
    }
}

Metadata Metadata::fromBytes(const uint8_t* data, size_t size) {
    if (!data || size == 0 || size > size_t(std::numeric_limits<long>::max())) return {};
    try {
        initExiv2();
        return Metadata(load(Exiv2::ImageFactory::open(data, long(size))));
    } catch (...) {
        return {};
    }
}

bool Metadata::empty() const {
    return !d_;
}

std::optional<std::string> Metadata::text(std::string_view key) const {
    if (!d_) return std::nullopt;
    std::lock_guard lock(d_->mutex);
    try {
        if (const auto* m = d_->find(key)) return nonEmpty(clean(storedText(m->value())));
    } catch (...) {
    }
    return std::nullopt;
}

std::optional<std::string> Metadata::interpreted(std::string_view key) const {
    if (!d_) return std::nullopt;
    std::lock_guard lock(d_->mutex);
    try {
        if (const auto* m = d_->find(key)) return nonEmpty(clean(m->print(&d_->exif)));
    } catch (...) {
    }
    return std::nullopt;
}

std::optional<double> Metadata::number(std::string_view key, size_t index) const {
    if (!d_) return std::nullopt;
    std::lock_guard lock(d_->mutex);
    try {
        if (const auto* m = d_->find(key)) return numberOf(m->value(), index);
    } catch (...) {
    }
    return std::nullopt;
}

std::optional<long> Metadata::integer(std::string_view key) const {
    if (!d_) return std::nullopt;
    {
        std::lock_guard lock(d_->mutex);
        try {
            const auto* m = d_->find(key);
            if (!m) return std::nullopt;
            const Exiv2::Value& v = m->value();
            if (isIntegral(v.typeId())) {
                if (v.count() < 1) return std::nullopt;
                return v.toLong(0);
            }
        } catch (...) {
            return std::nullopt;
        }
    }
    const auto x = number(key);
    if (!x || *x != std::floor(*x) || std::abs(*x) > 9.0e18) return std::nullopt;
    return long(*x);
}

int Metadata::orientation() const {
    const auto o = integer("Exif.Image.Orientation");
    return o && *o >= 1 && *o <= 8 ? int(*o) : 1;
}

std::vector<std::pair<std::string, std::string>> Metadata::entries() const {
    std::vector<std::pair<std::string, std::string>> out;
    if (!d_) return out;
    std::lock_guard lock(d_->mutex);
    const auto add = [&](const Exiv2::Metadatum& m) {
        std::string value;
        try {
            const Exiv2::TypeId t = m.typeId();
            const bool binary =
                t == Exiv2::undefined || t == Exiv2::unsignedByte || t == Exiv2::signedByte;
            if (binary && m.size() > 256) {
                char size[40];
                std::snprintf(size, sizeof size, "(%zu bytes)", size_t(m.size()));
                value = size;
            } else {
                value = clean(m.print(&d_->exif));
            }
        } catch (...) {
        }
        out.emplace_back(m.key(), shortened(std::move(value), 256));
    };
    try {
        for (const auto& d : d_->exif)
            if (d.groupName() != "MakerNote") add(d);  // Exiv2's own bookkeeping entries
        for (const auto& d : d_->iptc)
            add(d);
        for (const auto& d : d_->xmp)
            add(d);
    } catch (...) {
    }
    return out;
}

std::vector<uint8_t> Metadata::exifApp1(int width, int height) const {
    if (!d_ || d_->exif.empty()) return {};
    std::lock_guard lock(d_->mutex);
    try {
        Exiv2::ExifData exif = exportExif(d_->exif, width, height);
        const Exiv2::Blob tiff = fitApp1(exif, d_->byteOrder);
        if (tiff.empty()) return {};
        std::vector<uint8_t> out = {'E', 'x', 'i', 'f', 0, 0};
        out.insert(out.end(), tiff.begin(), tiff.end());
        return out;
    } catch (...) {
        return {};
    }
}

bool Metadata::writeInto(const std::string& path, int width, int height, std::string* error) const {
    const auto fail = [&](const std::string& why) {
        if (error) *error = path + ": " + why;
        return false;
    };
    if (!d_) return true;
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) return fail("not a regular file");
    try {
        initExiv2();
        Exiv2::BasicIo::AutoPtr io(new Exiv2::FileIo(path));
        Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(io);
        if (!image.get()) return fail("unknown file format");
        image->readMetadata();
        const std::string mime = image->mimeType();
        Exiv2::ExifData exif = image->exifData();
        Exiv2::IptcData iptc = image->iptcData();
        Exiv2::XmpData xmp = image->xmpData();
        {
            std::lock_guard lock(d_->mutex);
            if (!d_->exif.empty()) overlay(exif, exportExif(d_->exif, width, height));
            overlay(iptc, d_->iptc);
            overlay(xmp, exportXmp(d_->xmp, width, height));
        }
        if (image->byteOrder() == Exiv2::invalidByteOrder) image->setByteOrder(d_->byteOrder);
        const Exiv2::ByteOrder order = image->byteOrder();
        if (mime == "image/jpeg" && !exif.empty() && fitApp1(exif, order).empty()) exif.clear();
        Exiv2::Blob pngExif;
        if (mime == "image/png") {
            if (!exif.empty()) pngExif = encode(exif, order);
            image->clearExifData();
        } else {
            image->setExifData(exif);
        }
        image->setIptcData(iptc);
        image->setXmpData(xmp);
        image->writeMetadata();
        image.reset();
        std::string why;
        if (!pngExif.empty() && !insertPngExif(path, pngExif, why)) return fail(why);
        return true;
    } catch (const std::exception& e) {
        return fail(e.what());
    } catch (...) {
        return fail("metadata could not be written");
    }
}

}  // namespace ql::img
