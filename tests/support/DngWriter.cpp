#include "DngWriter.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "imaging/raw/WhiteBalance.h"

namespace ql::testing {

namespace {

// TIFF field types.
enum : uint16_t {
    kByte = 1,
    kAscii = 2,
    kShort = 3,
    kLong = 4,
    kRational = 5,
    kUndefined = 7,
    kSRational = 10
};

size_t typeSize(uint16_t type) {
    switch (type) {
        case kShort:
            return 2;
        case kLong:
            return 4;
        case kRational:
        case kSRational:
            return 8;
        default:
            return 1;
    }
}

void put16(uint8_t* p, uint32_t v) {
    p[0] = uint8_t(v);
    p[1] = uint8_t(v >> 8);
}

void put32(uint8_t* p, uint32_t v) {
    put16(p, v);
    put16(p + 2, v >> 16);
}

uint32_t even(size_t n) {
    return uint32_t((n + 1) & ~size_t(1));
}

// Best fraction by continued fractions within the range of a TIFF (S)RATIONAL, so that 1/200 s
// stays 1/200 and matrix entries keep all their digits.
std::pair<int64_t, int64_t> fraction(double v, bool isSigned) {
    const double limit = isSigned ? 2147483647.0 : 4294967295.0;
    if (!std::isfinite(v) || std::fabs(v) > limit || (!isSigned && v < 0)) {
        throw std::invalid_argument("DNG rational out of range");
    }
    const double x = std::fabs(v);
    int64_t p0 = 0, q0 = 1, p1 = 1, q1 = 0;
    double r = x;
    for (int i = 0; i < 64; ++i) {
        const double a = std::floor(r);
        if (a * p1 + p0 > limit || a * q1 + q0 > limit) break;
        const auto ai = int64_t(a);
        const int64_t p2 = ai * p1 + p0, q2 = ai * q1 + q0;
        p0 = p1, q0 = q1, p1 = p2, q1 = q2;
        const double rest = r - a;
        if (rest < 1e-12 || std::fabs(double(p1) / double(q1) - x) <= 1e-15 * x) break;
        r = 1 / rest;
    }
    return {v < 0 ? -p1 : p1, q1};
}

struct Entry {
    uint16_t tag;
    uint16_t type;
    std::vector<uint8_t> data;  // little-endian values
};

class Ifd {
  public:
    void ascii(uint16_t tag, const std::string& s) {
        std::vector<uint8_t> d(s.begin(), s.end());
        d.push_back(0);
        entries_.push_back({tag, kAscii, std::move(d)});
    }
    void bytes(uint16_t tag, std::vector<uint8_t> d, uint16_t type = kByte) {
        entries_.push_back({tag, type, std::move(d)});
    }
    void shorts(uint16_t tag, std::initializer_list<uint32_t> vs) {
        std::vector<uint8_t> d(vs.size() * 2);
        for (size_t i = 0; i < vs.size(); ++i)
            put16(&d[i * 2], vs.begin()[i]);
        entries_.push_back({tag, kShort, std::move(d)});
    }
    void longs(uint16_t tag, std::initializer_list<uint32_t> vs) {
        std::vector<uint8_t> d(vs.size() * 4);
        for (size_t i = 0; i < vs.size(); ++i)
            put32(&d[i * 4], vs.begin()[i]);
        entries_.push_back({tag, kLong, std::move(d)});
    }
    template <class Range>
    void rationals(uint16_t tag, const Range& vs, bool isSigned) {
        std::vector<uint8_t> d(std::size(vs) * 8);
        uint8_t* p = d.data();
        for (double v : vs) {
            const auto [num, den] = fraction(v, isSigned);
            put32(p, uint32_t(num));
            put32(p + 4, uint32_t(den));
            p += 8;
        }
        entries_.push_back({tag, isSigned ? kSRational : kRational, std::move(d)});
    }
    void rational(uint16_t tag, double v, bool isSigned = false) {
        rationals(tag, std::array<double, 1>{v}, isSigned);
    }

    /// Fills in a single-LONG entry whose value (an offset) is known only after layout.
    void setLong(uint16_t tag, uint32_t v) {
        for (Entry& e : entries_) {
            if (e.tag == tag) put32(e.data.data(), v);
        }
    }

    /// Bytes taken by the directory and the values too long to sit in its entries.
    uint32_t size() const {
        uint32_t n = uint32_t(2 + 12 * entries_.size() + 4);
        for (const Entry& e : entries_) {
            if (e.data.size() > 4) n += even(e.data.size());
        }
        return n;
    }

    void write(uint8_t* file, uint32_t offset) {
        std::sort(entries_.begin(), entries_.end(),
                  [](const Entry& a, const Entry& b) { return a.tag < b.tag; });
        uint8_t* p = file + offset;
        uint32_t extra = uint32_t(offset + 2 + 12 * entries_.size() + 4);
        put16(p, uint32_t(entries_.size()));
        p += 2;
        for (const Entry& e : entries_) {
            put16(p, e.tag);
            put16(p + 2, e.type);
            put32(p + 4, uint32_t(e.data.size() / typeSize(e.type)));
            if (e.data.size() <= 4) {
                std::copy(e.data.begin(), e.data.end(), p + 8);
            } else {
                put32(p + 8, extra);
                std::copy(e.data.begin(), e.data.end(), file + extra);
                extra += even(e.data.size());
            }
            p += 12;
        }
        put32(p, 0);  // no chain: the raw and EXIF directories hang off IFD0
    }

  private:
    std::vector<Entry> entries_;
};

std::array<int, 4> cfaColours(const std::string& cfa) {
    static const std::pair<const char*, std::array<int, 4>> patterns[] = {{"RGGB", {0, 1, 1, 2}},
                                                                          {"BGGR", {2, 1, 1, 0}},
                                                                          {"GRBG", {1, 0, 2, 1}},
                                                                          {"GBRG", {1, 2, 0, 1}}};
    for (const auto& [name, colours] : patterns) {
        if (cfa == name) return colours;
    }
    throw std::invalid_argument("CFA must be RGGB, BGGR, GRBG or GBRG, not '" + cfa + "'");
}

void validate(const DngSpec& s) {
    if (s.width <= 0 || s.height <= 0 || s.width % 2 || s.height % 2) {
        throw std::invalid_argument("DNG size must be positive and even");
    }
    // Offsets are 32-bit: leave room for the directories and the preview.
    if (uint64_t(s.width) * uint64_t(s.height) * 2 > 0xF0000000u) {
        throw std::invalid_argument("DNG too large for TIFF");
    }
    if (s.blackLevel < 0 || s.blackLevel >= s.whiteLevel || s.whiteLevel > 65535) {
        throw std::invalid_argument("DNG levels must satisfy 0 <= black < white <= 65535");
    }
    if (s.orientation < 0 || s.orientation > 8) {
        throw std::invalid_argument("TIFF orientation must be 0..8");
    }
    for (int v : {s.calibrationIlluminant1, s.calibrationIlluminant2, s.flash, s.exposureProgram,
                  s.meteringMode, s.whiteBalance}) {
        if (v > 65535) throw std::invalid_argument("DNG SHORT field above 65535");
    }
    if (s.calibrationIlluminant1 < 0 || s.calibrationIlluminant2 < 0) {
        throw std::invalid_argument("calibration illuminant must not be negative");
    }
    for (double n : s.asShotNeutral) {
        if (!(n > 0)) throw std::invalid_argument("AsShotNeutral must be positive");
    }
    const bool preview = s.previewWidth != 0 || s.previewHeight != 0 || !s.previewRGB.empty();
    if (preview && (s.previewWidth <= 0 || s.previewHeight <= 0 ||
                    s.previewRGB.size() != size_t(s.previewWidth) * size_t(s.previewHeight) * 3)) {
        throw std::invalid_argument("preview RGB does not match its size");
    }
}

void addCfaRaw(Ifd& ifd, const DngSpec& s, const std::array<int, 4>& cfa) {
    const auto w = uint32_t(s.width), h = uint32_t(s.height);
    ifd.longs(254, {0});  // NewSubFileType: main image
    ifd.longs(256, {w});
    ifd.longs(257, {h});
    ifd.shorts(258, {16});
    ifd.shorts(259, {1});      // uncompressed
    ifd.shorts(262, {32803});  // CFA
    ifd.longs(273, {0});       // StripOffsets, set after layout
    ifd.shorts(277, {1});
    ifd.longs(278, {h});
    ifd.longs(279, {w * h * 2});
    ifd.shorts(284, {1});
    ifd.shorts(33421, {2, 2});  // CFARepeatPatternDim
    ifd.bytes(33422, {uint8_t(cfa[0]), uint8_t(cfa[1]), uint8_t(cfa[2]), uint8_t(cfa[3])});
    ifd.bytes(50710, {0, 1, 2});  // CFAPlaneColor
    ifd.shorts(50711, {1});       // CFALayout: rectangular
    ifd.longs(50714, {uint32_t(s.blackLevel)});
    ifd.longs(50717, {uint32_t(s.whiteLevel)});
}

// Camera-wide tags; they belong in IFD0 whatever image it holds.
void addCameraTags(Ifd& ifd, const DngSpec& s) {
    if (!s.make.empty()) ifd.ascii(271, s.make);
    if (!s.model.empty()) ifd.ascii(272, s.model);
    if (s.orientation > 0) ifd.shorts(274, {uint32_t(s.orientation)});
    ifd.longs(34665, {0});  // ExifIFD, set after layout
    ifd.bytes(50706, {1, 4, 0, 0});
    ifd.bytes(50707, {1, 1, 0, 0});
    ifd.ascii(50708, s.uniqueCameraModel.empty() ? s.model : s.uniqueCameraModel);
    ifd.rationals(50721, s.colorMatrix1, true);
    if (s.colorMatrix2) ifd.rationals(50722, *s.colorMatrix2, true);
    ifd.rationals(50728, s.asShotNeutral, false);
    ifd.shorts(50778, {uint32_t(s.calibrationIlluminant1)});
    if (s.colorMatrix2) ifd.shorts(50779, {uint32_t(s.calibrationIlluminant2)});
}

Ifd exifIfd(const DngSpec& s) {
    Ifd ifd;
    ifd.bytes(36864, {'0', '2', '3', '0'}, kUndefined);  // ExifVersion
    if (s.exposureTime > 0) ifd.rational(33434, s.exposureTime);
    if (s.fNumber > 0) ifd.rational(33437, s.fNumber);
    if (s.exposureProgram >= 0) ifd.shorts(34850, {uint32_t(s.exposureProgram)});
    if (s.iso > 0) ifd.shorts(34855, {uint32_t(std::min(s.iso, 65535))});
    if (!s.dateTimeOriginal.empty()) ifd.ascii(36867, s.dateTimeOriginal);
    if (s.exposureBias != 0) ifd.rational(37380, s.exposureBias, true);
    if (s.meteringMode >= 0) ifd.shorts(37383, {uint32_t(s.meteringMode)});
    if (s.flash >= 0) ifd.shorts(37385, {uint32_t(s.flash)});
    if (s.focalLength > 0) ifd.rational(37386, s.focalLength);
    if (s.whiteBalance >= 0) ifd.shorts(41987, {uint32_t(s.whiteBalance)});
    if (!s.lensModel.empty()) ifd.ascii(42036, s.lensModel);
    return ifd;
}

void fillSamples(uint8_t* out, const DngSpec& s, const std::array<int, 4>& cfa,
                 const CameraScene& scene) {
    const float range = float(s.whiteLevel - s.blackLevel);
    for (int y = 0; y < s.height; ++y) {
        const int* rowCfa = cfa.data() + (y & 1) * 2;
        for (int x = 0; x < s.width; ++x) {
            float v = scene ? scene(x, y)[size_t(rowCfa[x & 1])] : 0.f;
            v = v > 0 ? std::min(v, 1.f) : 0.f;  // NaN reads as black
            put16(out, uint32_t(s.blackLevel + std::lround(v * range)));
            out += 2;
        }
    }
}

}  // namespace

std::vector<uint8_t> encodeJpeg(int width, int height, const std::vector<uint8_t>& rgb,
                                int quality) {
    if (width <= 0 || height <= 0 || rgb.size() != size_t(width) * size_t(height) * 3) {
        throw std::invalid_argument("JPEG RGB does not match its size");
    }
    std::unique_ptr<void, int (*)(tjhandle)> tj(tjInitCompress(), tjDestroy);
    if (!tj) throw std::runtime_error("cannot start the JPEG encoder");
    unsigned char* buf = nullptr;
    unsigned long size = 0;
    if (tjCompress2(tj.get(), rgb.data(), width, 0, height, TJPF_RGB, &buf, &size, TJSAMP_420,
                    std::clamp(quality, 1, 100), 0) != 0) {
        tjFree(buf);
        throw std::runtime_error(std::string("JPEG encoding failed: ") + tjGetErrorStr2(tj.get()));
    }
    std::vector<uint8_t> jpeg(buf, buf + size);
    tjFree(buf);
    return jpeg;
}

std::vector<uint8_t> dngBytes(const DngSpec& s, const CameraScene& scene) {
    validate(s);
    const std::array<int, 4> cfa = cfaColours(s.cfa);
    const bool hasPreview = !s.previewRGB.empty();

    // Camera layout: IFD0 is the preview and carries the camera-wide tags, SubIFDs points at the
    // raw. Without a preview the raw sits in IFD0 itself, as phones write it.
    Ifd ifd0, raw;
    std::vector<uint8_t> jpeg;
    if (hasPreview) {
        jpeg = encodeJpeg(s.previewWidth, s.previewHeight, s.previewRGB, 90);
        const auto w = uint32_t(s.previewWidth), h = uint32_t(s.previewHeight);
        ifd0.longs(254, {1});  // NewSubFileType: reduced-resolution copy
        ifd0.longs(256, {w});
        ifd0.longs(257, {h});
        ifd0.shorts(258, {8, 8, 8});
        ifd0.shorts(259, {7});  // JPEG
        ifd0.shorts(262, {6});  // YCbCr
        ifd0.longs(273, {0});   // StripOffsets, set after layout
        ifd0.shorts(277, {3});
        ifd0.longs(278, {h});
        ifd0.longs(279, {uint32_t(jpeg.size())});
        ifd0.shorts(284, {1});
        ifd0.longs(330, {0});  // SubIFDs, set after layout
        // The same bytes as an EXIF JPEG thumbnail too: Exiv2 reports only that one as a JPEG
        // (the strip it wraps into a TIFF); LibRaw and exiftool take either.
        ifd0.longs(513, {0});
        ifd0.longs(514, {uint32_t(jpeg.size())});
        ifd0.shorts(530, {2, 2});  // YCbCrSubSampling, as encoded
        ifd0.longs(50970, {2});    // PreviewColorSpace: sRGB
        addCfaRaw(raw, s, cfa);
    } else {
        addCfaRaw(ifd0, s, cfa);
    }
    addCameraTags(ifd0, s);
    Ifd exif = exifIfd(s);

    const uint32_t ifd0At = 8;
    const uint32_t rawIfdAt = ifd0At + ifd0.size();
    const uint32_t exifAt = rawIfdAt + (hasPreview ? raw.size() : 0);
    const uint32_t jpegAt = exifAt + exif.size();
    const uint32_t samplesAt = jpegAt + even(jpeg.size());
    ifd0.setLong(34665, exifAt);
    if (hasPreview) {
        ifd0.setLong(273, jpegAt);
        ifd0.setLong(513, jpegAt);
        ifd0.setLong(330, rawIfdAt);
        raw.setLong(273, samplesAt);
    } else {
        ifd0.setLong(273, samplesAt);
    }

    std::vector<uint8_t> out(samplesAt + size_t(s.width) * size_t(s.height) * 2);
    out[0] = 'I';
    out[1] = 'I';
    put16(&out[2], 42);
    put32(&out[4], ifd0At);
    ifd0.write(out.data(), ifd0At);
    if (hasPreview) raw.write(out.data(), rawIfdAt);
    exif.write(out.data(), exifAt);
    std::copy(jpeg.begin(), jpeg.end(), out.begin() + jpegAt);
    fillSamples(out.data() + samplesAt, s, cfa, scene);
    return out;
}

void writeDng(const std::string& path, const DngSpec& spec, const CameraScene& scene) {
    const std::vector<uint8_t> bytes = dngBytes(spec, scene);
    std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(path.c_str(), "wb"), std::fclose);
    if (!f) throw std::runtime_error("cannot create " + path);
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f.get()) == bytes.size();
    if (!written || std::fclose(f.release()) != 0) {
        throw std::runtime_error("cannot write " + path);
    }
}

DngSpec apscCameraSpec(int width, int height) {
    DngSpec spec;
    spec.width = width, spec.height = height;
    spec.colorMatrix1 = {0.7755, -0.2449, -0.0349, -0.4470, 1.2136,
                         0.1969, -0.0757, 0.1669,  0.6954};
    spec.calibrationIlluminant1 = 17;
    spec.colorMatrix2 = {0.6941, -0.1164, -0.0857, -0.3825, 1.1597,
                         0.2534, -0.0416, 0.1540,  0.6039};
    spec.calibrationIlluminant2 = 21;
    return spec;
}

void writeDngOfScene(const std::string& path, const img::Image& scene, int iso) {
    DngSpec spec = apscCameraSpec(scene.width(), scene.height());
    spec.iso = iso;
    const img::CameraCalibration cal{*spec.colorMatrix2, 6504, spec.colorMatrix1, 2856};
    spec.asShotNeutral = img::cameraNeutral(cal, img::kD65White);
    // Linear sRGB to XYZ (D65), then the camera's own matrix.
    const double toXyz[9] = {0.4124564, 0.3575761, 0.1804375, 0.2126729, 0.7151522,
                             0.0721750, 0.0193339, 0.1191920, 0.9503041};
    double m[9] = {};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k)
                m[r * 3 + c] += (*spec.colorMatrix2)[size_t(r * 3 + k)] * toXyz[k * 3 + c];
    const double scale =
        0.9 / std::max({spec.asShotNeutral[0], spec.asShotNeutral[1], spec.asShotNeutral[2]});
    writeDng(path, spec, [&](int x, int y) {
        const img::Pixel p = scene.at(x, y);
        std::array<float, 3> cam{};
        for (int r = 0; r < 3; ++r)
            cam[size_t(r)] =
                float(scale * (m[r * 3] * p.r + m[r * 3 + 1] * p.g + m[r * 3 + 2] * p.b));
        return cam;
    });
}

}  // namespace ql::testing
