#include "CameraLook.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <new>

#include "imaging/BoxShrink.h"
#include "imaging/Execution.h"
#include "imaging/LanczosScale.h"
#include "imaging/Orientation.h"
#include "imaging/SrgbTransfer.h"
#include "imaging/codec/DecodeError.h"
#include "imaging/codec/JpegCodec.h"
#include "imaging/raw/RawDecoder.h"

namespace ql::CameraLook {
namespace {

constexpr size_t kScanBytes = 48'000'003;  // start markers are looked for this far into the file
constexpr size_t kTakeBytes = 40'000'000;  // the most one embedded stream may span
// The least a baseline stream spends on an 8×8 block is two bits (a DC and an end-of-block code
// of one bit each), and a progressive DC scan one; a header claiming more pixels than that for
// its bytes is lying, and decoding it would only paint grey over a large allocation.
constexpr int64_t kMostPixelsPerByte = 512;

// The file's bytes, mapped when the system allows, otherwise read as far as the scan can reach.
class FileView {
  public:
    explicit FileView(const std::string& path) {
        const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) return;
        struct stat st {};
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
            const size_t size = size_t(st.st_size);
            void* map = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
            if (map != MAP_FAILED) {
                ::madvise(map, std::min(size, kScanBytes + kTakeBytes), MADV_SEQUENTIAL);
                map_ = map, mapped_ = size;
                data_ = static_cast<const uint8_t*>(map), size_ = size;
            } else {
                readFrom(fd, std::min(size, kScanBytes + kTakeBytes));
            }
        }
        ::close(fd);
    }
    ~FileView() {
        if (map_) ::munmap(map_, mapped_);
    }
    FileView(const FileView&) = delete;
    FileView& operator=(const FileView&) = delete;

    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }

  private:
    void readFrom(int fd, size_t want) {
        try {
            copy_.resize(want);
        } catch (const std::bad_alloc&) {
            return;
        }
        size_t got = 0;
        while (got < want) {
            const ssize_t n = ::read(fd, copy_.data() + got, want - got);
            if (n <= 0) break;
            got += size_t(n);
        }
        copy_.resize(got);
        data_ = copy_.data(), size_ = got;
    }

    void* map_ = nullptr;
    size_t mapped_ = 0;
    std::vector<uint8_t> copy_;
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
};

// Frame codings libjpeg-turbo decodes: baseline, extended and progressive, Huffman or arithmetic.
// Lossless frames are how many RAW formats compress their sensor data; those are passed over
// before any entropy-coded data is walked.
bool decodableFrame(uint8_t marker) {
    return marker == 0xC0 || marker == 0xC1 || marker == 0xC2 || marker == 0xC9 || marker == 0xCA;
}

bool frameMarker(uint8_t marker) {
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// The length of the stream at `p` (which starts with a start marker) up to and including its end
// marker, found by walking the marker segments and the entropy-coded data; 0 when there is no
// complete decodable stream within `n` bytes. Such a stream could not decode anyway: the decoder
// refuses data that ends before the picture does.
size_t streamLength(const uint8_t* p, size_t n) {
    size_t pos = 2;
    bool frame = false;
    for (;;) {
        if (pos >= n || p[pos] != 0xFF) return 0;
        while (pos < n && p[pos] == 0xFF)  // fill bytes before a marker
            ++pos;
        if (pos >= n) return 0;
        const uint8_t marker = p[pos++];
        if (marker == 0xD9) return frame ? pos : 0;
        if (marker == 0xD8 || marker == 0x00) return 0;  // a new stream, or no marker at all
        if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) continue;  // no length
        if (n - pos < 2) return 0;
        const size_t length = size_t(p[pos]) << 8 | p[pos + 1];
        if (length < 2 || length > n - pos) return 0;
        if (frameMarker(marker)) {
            if (frame || !decodableFrame(marker)) return 0;
            frame = true;
        }
        pos += length;
        if (marker != 0xDA) continue;
        if (!frame) return 0;
        // Entropy-coded data runs to the next marker; FF 00 is a stuffed FF and restart markers
        // lie within it.
        for (;;) {
            const void* ff = std::memchr(p + pos, 0xFF, n - pos);
            if (!ff) return 0;
            pos = size_t(static_cast<const uint8_t*>(ff) - p);
            if (pos + 1 >= n) return 0;
            const uint8_t next = p[pos + 1];
            if (next == 0xFF) {
                ++pos;
            } else if (next == 0x00 || (next >= 0xD0 && next <= 0xD7)) {
                pos += 2;
            } else {
                break;
            }
        }
    }
}

struct Candidate {
    size_t length = 0;
    int64_t pixels = 0;
};

// The stream at `p` as a candidate: its length and the pixel count its header states; length 0
// when it is passed over.
Candidate candidate(const uint8_t* p, size_t n) {
    if (n < 4 || p[0] != 0xFF || p[1] != 0xD8 || p[2] != 0xFF) return {};
    const size_t length = streamLength(p, std::min(n, kTakeBytes));
    if (length == 0) return {};
    try {
        const img::JpegHeader h = img::readJpegHeader({p, length});
        img::checkDimensions(h.width, h.height);
        const int64_t pixels = int64_t(h.width) * h.height;
        if (pixels > kMostPixelsPerByte * int64_t(length)) return {};
        return {length, pixels};
    } catch (const img::DecodeError&) {
        return {};
    }
}

// True when the header of `jpeg` states more than `pixels` pixels.
bool larger(std::span<const uint8_t> jpeg, int64_t pixels) {
    if (jpeg.size() < 4) return false;
    try {
        const img::JpegHeader h = img::readJpegHeader(jpeg);
        return int64_t(h.width) * h.height > pixels;
    } catch (const img::DecodeError&) {
        return false;
    }
}

// The next start marker FF D8 FF at or after `at` that ends by `end`; `end` when there is none.
// Sixteen positions a step, so that no content (runs of FF included) slows the scan down.
size_t nextStart(const uint8_t* p, size_t at, size_t end) {
    using Bytes = uint8_t __attribute__((vector_size(16)));
    const auto load = [&](size_t i) {
        Bytes v;
        std::memcpy(&v, p + i, sizeof v);
        return v;
    };
    for (; at + 18 <= end; at += 16) {
        const Bytes hit = (load(at) == 0xFF) & (load(at + 1) == 0xD8) & (load(at + 2) == 0xFF);
        uint64_t lanes[2];
        std::memcpy(lanes, &hit, sizeof lanes);
        if (lanes[0] | lanes[1])
            for (size_t k = 0; k < 16; ++k)
                if (hit[k]) return at + k;
    }
    for (; at + 3 <= end; ++at)
        if (p[at] == 0xFF && p[at + 1] == 0xD8 && p[at + 2] == 0xFF) return at;
    return end;
}

}  // namespace

std::vector<uint8_t> embeddedJPEG(const std::string& path, img::RawDecoder* decoder) {
    const FileView file(path);
    const uint8_t* p = file.data();
    const size_t n = file.size();
    Candidate best;
    size_t bestAt = 0;
    const size_t scanEnd = std::min(n, kScanBytes);
    for (size_t at = 0; (at = nextStart(p, at, scanEnd)) < scanEnd; ++at) {
        const Candidate c = candidate(p + at, n - at);
        if (c.length > 0 && c.pixels > best.pixels) best = c, bestAt = at;
    }
    std::vector<uint8_t> jpeg;
    if (best.length > 0) jpeg.assign(p + bestAt, p + bestAt + best.length);

    // LibRaw knows where each format keeps its preview, also beyond the part searched above.
    std::unique_ptr<img::RawDecoder> own;
    if (!decoder) {
        try {
            own = img::RawDecoder::open(path);
        } catch (const img::DecodeError&) {
        }
        decoder = own.get();
    }
    if (decoder) {
        std::vector<uint8_t> preview = decoder->embeddedJpeg();
        // Usually the very stream found above: its header alone settles that it is no larger.
        if (!larger(preview, best.pixels)) return jpeg;
        const Candidate c = candidate(preview.data(), preview.size());
        if (c.length > 0 && c.pixels > best.pixels) {
            preview.resize(c.length);
            jpeg = std::move(preview);
        }
    }
    return jpeg;
}

img::Image decodeEmbedded(std::span<const uint8_t> jpeg, int orientation, int atLeastLongEdge) {
    // The decoder paints grey where a stream's data ends early; such streams are refused here.
    const Candidate c = candidate(jpeg.data(), jpeg.size());
    if (c.length == 0) return {};
    try {
        const std::span<const uint8_t> stream = jpeg.first(c.length);
        const img::JpegHeader h = img::readJpegHeader(stream);
        const img::Image image =
            img::decodeJpeg(stream, img::jpegReductionFor(h.width, h.height, atLeastLongEdge));
        return image.empty() ? image : img::orient(image, orientation);
    } catch (const img::DecodeError&) {
        return {};
    } catch (const std::bad_alloc&) {
        return {};
    }
}

img::Image embeddedImage(const std::string& path, int orientation, img::RawDecoder* decoder) {
    return decodeEmbedded(embeddedJPEG(path, decoder), orientation);
}

namespace {

using Colour = std::array<double, 3>;
// Maps a colour to a colour: three rows over (r, g, b, 1).
using Affine = std::array<std::array<double, 4>, 3>;

constexpr int kCells = kCubeNodes - 1;
constexpr int kNodeCount = kCubeNodes * kCubeNodes * kCubeNodes;
constexpr int kMinSamples = 2001;
constexpr double kClipped = 0.995;

constexpr int node(int r, int g, int b) {
    return (b * kCubeNodes + g) * kCubeNodes + r;
}

Colour mapped(const Affine& m, const Colour& c) {
    Colour out{};
    for (size_t k = 0; k < 3; ++k)
        out[k] = m[k][0] * c[0] + m[k][1] * c[1] + m[k][2] * c[2] + m[k][3];
    return out;
}

// Least squares over (r, g, b, 1): the normal equations, slightly regularised so that a photo
// of few distinct colours still solves, by Gaussian elimination with partial pivoting. A column
// without a usable pivot is left out (its coefficients 0).
Affine solveAffine(const std::vector<Colour>& from, const std::vector<Colour>& to) {
    double a[4][7] = {};
    for (size_t s = 0; s < from.size(); ++s) {
        const double x[4] = {from[s][0], from[s][1], from[s][2], 1};
        for (int i = 0; i < 4; ++i) {
            for (int j = 0; j < 4; ++j)
                a[i][j] += x[i] * x[j];
            for (int k = 0; k < 3; ++k)
                a[i][4 + k] += x[i] * to[s][size_t(k)];
        }
    }
    for (int i = 0; i < 4; ++i)
        a[i][i] += 1e-6;
    constexpr double kTinyPivot = 1e-12;
    for (int col = 0; col < 4; ++col) {
        int pivot = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::abs(a[r][col]) > std::abs(a[pivot][col])) pivot = r;
        if (!(std::abs(a[pivot][col]) > kTinyPivot)) continue;
        if (pivot != col) std::swap(a[pivot], a[col]);
        for (int r = col + 1; r < 4; ++r) {
            const double f = a[r][col] / a[col][col];
            for (int j = col; j < 7; ++j)
                a[r][j] -= f * a[col][j];
        }
    }
    double x[4][3] = {};
    for (int i = 3; i >= 0; --i) {
        if (!(std::abs(a[i][i]) > kTinyPivot)) continue;
        for (int k = 0; k < 3; ++k) {
            double v = a[i][4 + k];
            for (int j = i + 1; j < 4; ++j)
                v -= a[i][j] * x[j][k];
            x[i][k] = v / a[i][i];
        }
    }
    Affine m{};
    for (size_t k = 0; k < 3; ++k)
        for (size_t i = 0; i < 4; ++i)
            m[k][i] = x[i][k];
    return m;
}

// The cell a colour falls in and its position inside, per axis.
struct CellPoint {
    int cell[3];
    double f[3];
};

CellPoint cellOf(const Colour& c) {
    CellPoint p{};
    for (size_t k = 0; k < 3; ++k) {
        const double v = kCells * c[k];
        const int i = std::clamp(int(std::floor(v)), 0, kCells - 1);
        p.cell[k] = i;
        p.f[k] = v - i;
    }
    return p;
}

// The weight of corner (dr, dg, db) of the cell, trilinear.
double cornerWeight(const CellPoint& p, int dr, int dg, int db) {
    return (dr ? p.f[0] : 1 - p.f[0]) * (dg ? p.f[1] : 1 - p.f[1]) * (db ? p.f[2] : 1 - p.f[2]);
}

Colour lookup(const std::vector<float>& cube, const Colour& c) {
    const CellPoint p = cellOf(c);
    Colour out{};
    for (int db = 0; db < 2; ++db)
        for (int dg = 0; dg < 2; ++dg)
            for (int dr = 0; dr < 2; ++dr) {
                const double w = cornerWeight(p, dr, dg, db);
                const size_t at = size_t(node(p.cell[0] + dr, p.cell[1] + dg, p.cell[2] + db)) * 4;
                for (size_t k = 0; k < 3; ++k)
                    out[k] += w * cube[at + k];
            }
    return out;
}

double difference(const Colour& a, const Colour& b) {
    return (std::abs(a[0] - b[0]) + std::abs(a[1] - b[1]) + std::abs(a[2] - b[2])) / 3;
}

// Unpremultiplied, sRGB-encoded colour of each pixel; a transparent pixel carries none (NaN).
std::vector<Colour> encoded(const img::Image& image) {
    // The curve as the cube stage evaluates it.
    const img::SrgbEncodeTable& encode = img::SrgbEncodeTable::shared();
    std::vector<Colour> out(image.pixelCount());
    const float* p = image.data();
    for (size_t i = 0; i < out.size(); ++i, p += 4) {
        const float a = p[3];
        if (!(a > 0)) {
            out[i] = {NAN, NAN, NAN};
            continue;
        }
        for (size_t k = 0; k < 3; ++k)
            out[i][k] = encode(a == 1 ? p[k] : p[k] / a);
    }
    return out;
}

// Clipped colours say nothing about the rendering, nor does a plain colour below black.
bool sampled(const Colour& plain, const Colour& camera) {
    for (size_t k = 0; k < 3; ++k)
        if (!(plain[k] >= 0 && plain[k] <= kClipped && camera[k] <= kClipped &&
              std::isfinite(camera[k])))
            return false;
    return true;
}

}  // namespace

Fit fit(const img::Image& plain, const img::Image& camera) {
    Fit result;
    if (plain.empty() || camera.empty()) return result;
    // The plain picture's long edge becomes exactly kSampleLongEdge, the other edge truncated;
    // the camera's picture is scaled per axis onto the same grid.
    const bool wide = plain.width() >= plain.height();
    const int64_t shortEdge = wide ? plain.height() : plain.width();
    const int scaledShort = int(shortEdge * kSampleLongEdge / plain.longEdge());
    const int w = wide ? kSampleLongEdge : scaledShort;
    const int h = wide ? scaledShort : kSampleLongEdge;
    if (w < 33 || h < 33) return result;
    const double plainAspect = double(plain.width()) / plain.height();
    const double cameraAspect = double(camera.width()) / camera.height();
    if (!(std::abs(plainAspect - cameraAspect) < 0.02)) return result;

    const img::Image plainSample = img::shrinkTo(plain, w, h, 2.0),
                     cameraSample = img::shrinkTo(camera, w, h, 2.0);
    if (plainSample.width() != w || plainSample.height() != h || cameraSample.width() != w ||
        cameraSample.height() != h)
        return result;
    const std::vector<Colour> from = encoded(plainSample), to = encoded(cameraSample);

    // The JPEG's edges often differ from the RAW's: only the inside counts.
    const int m = w > 99 ? w / 25 : 4;
    if (h - m < m || w - m < m) return result;
    std::vector<Colour> apple, cam;
    for (int y = m; y < h - m; ++y)
        for (int x = m; x < w - m; ++x) {
            const size_t i = size_t(y) * size_t(w) + size_t(x);
            const Colour& a = from[i];
            const Colour& c = to[i];
            if (!sampled(a, c)) continue;
            apple.push_back(a);
            cam.push_back(c);
        }
    if (apple.size() < size_t(kMinSamples)) return result;

    const Affine base = solveAffine(apple, cam);

    // What the affine map leaves over, gathered on the cube's grid.
    std::vector<Colour> sum(kNodeCount, Colour{});
    std::vector<double> weight(kNodeCount, 0);
    for (size_t s = 0; s < apple.size(); ++s) {
        const Colour fitted = mapped(base, apple[s]);
        const Colour residual{cam[s][0] - fitted[0], cam[s][1] - fitted[1], cam[s][2] - fitted[2]};
        const CellPoint p = cellOf(apple[s]);
        for (int db = 0; db < 2; ++db)
            for (int dg = 0; dg < 2; ++dg)
                for (int dr = 0; dr < 2; ++dr) {
                    const double wgt = cornerWeight(p, dr, dg, db);
                    const int n = node(p.cell[0] + dr, p.cell[1] + dg, p.cell[2] + db);
                    for (size_t k = 0; k < 3; ++k)
                        sum[size_t(n)][k] += wgt * residual[k];
                    weight[size_t(n)] += wgt;
                }
    }
    // A node with few samples is pulled to the affine base.
    std::vector<double> confidence(kNodeCount, 0);
    std::vector<Colour> value(kNodeCount, Colour{});
    for (size_t n = 0; n < size_t(kNodeCount); ++n) {
        const double W = weight[n];
        if (!(W > 0)) continue;
        confidence[n] = W / (W + 3);
        for (size_t k = 0; k < 3; ++k)
            value[n][k] = sum[n][k] / W * confidence[n];
    }
    // Nodes without data fill in from their neighbours while well-sampled nodes hold; each pass
    // reads only the previous one, so the result does not depend on the visiting order.
    for (int pass = 0; pass < 3; ++pass) {
        std::vector<Colour> next(kNodeCount);
        for (int b = 0; b < kCubeNodes; ++b)
            for (int g = 0; g < kCubeNodes; ++g)
                for (int r = 0; r < kCubeNodes; ++r) {
                    const size_t n = size_t(node(r, g, b));
                    Colour acc{2 * value[n][0], 2 * value[n][1], 2 * value[n][2]};
                    double count = 2;
                    const auto add = [&](int nr, int ng, int nb) {
                        if (nr < 0 || ng < 0 || nb < 0 || nr >= kCubeNodes || ng >= kCubeNodes ||
                            nb >= kCubeNodes)
                            return;
                        const Colour& v = value[size_t(node(nr, ng, nb))];
                        for (size_t k = 0; k < 3; ++k)
                            acc[k] += v[k];
                        count += 1;
                    };
                    add(r - 1, g, b), add(r + 1, g, b);
                    add(r, g - 1, b), add(r, g + 1, b);
                    add(r, g, b - 1), add(r, g, b + 1);
                    const double c = confidence[n];
                    for (size_t k = 0; k < 3; ++k)
                        next[n][k] = c * value[n][k] + (1 - c) * acc[k] / count;
                }
        value.swap(next);
    }

    auto cube = std::make_shared<std::vector<float>>(size_t(kNodeCount) * 4);
    for (int b = 0; b < kCubeNodes; ++b)
        for (int g = 0; g < kCubeNodes; ++g)
            for (int r = 0; r < kCubeNodes; ++r) {
                const size_t n = size_t(node(r, g, b));
                const Colour at =
                    mapped(base, {double(r) / kCells, double(g) / kCells, double(b) / kCells});
                for (size_t k = 0; k < 3; ++k)
                    (*cube)[n * 4 + k] = float(std::clamp(at[k] + value[n][k], 0.0, 1.0));
                (*cube)[n * 4 + 3] = 1;
            }

    // Every seventh sample measures how close the cube comes; the fit saw them too.
    double before = 0, after = 0;
    size_t held = 0;
    for (size_t s = 0; s < apple.size(); s += 7, ++held) {
        before += difference(apple[s], cam[s]);
        after += difference(lookup(*cube, apple[s]), cam[s]);
    }
    result.before = before / double(held);
    result.error = after / double(held);
    result.lut = std::move(cube);
    return result;
}

}  // namespace ql::CameraLook
