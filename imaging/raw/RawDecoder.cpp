#include "RawDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include <libraw/libraw.h>

#include "imaging/Orientation.h"
#include "imaging/codec/DecodeError.h"

namespace ql::img {

struct RawDecoder::Impl {
    LibRaw raw;
    bool unpacked = false;
};

RawDecoder::RawDecoder() : impl_(std::make_unique<Impl>()) {}
RawDecoder::~RawDecoder() = default;

namespace {

// LibRaw's flip codes to EXIF orientation values.
int orientationOfFlip(int flip) {
    switch (flip) {
        case 1:
            return 2;
        case 2:
            return 4;
        case 3:
            return 3;
        case 4:
            return 5;
        case 5:
            return 8;
        case 6:
            return 6;
        case 7:
            return 7;
        default:
            return 1;
    }
}

bool usable(const float* m, int n) {
    bool any = false;
    for (int i = 0; i < n; ++i) {
        if (!std::isfinite(m[i])) return false;
        any = any || m[i] != 0;
    }
    return any;
}

Matrix3 matrixOf(const float m[][3]) {
    Matrix3 out{};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            out[size_t(r * 3 + c)] = m[r][c];
    return out;
}

// XYZ (D65) to linear sRGB, for cameras LibRaw has no matrix for: their own RGB is then taken as
// roughly sRGB, which at least keeps the white balance model monotonic.
constexpr Matrix3 kXyzToSrgb{3.2404542, -1.5371385, -0.4985314, -0.9692660, 1.8760108,
                             0.0415560, 0.0556434,  -0.2040259, 1.0572252};

CameraCalibration calibrationOf(const libraw_data_t& d) {
    CameraCalibration cal;
    const auto& dng = d.rawdata.color.dng_color;
    if (d.idata.dng_version && usable(&dng[0].colormatrix[0][0], 9)) {
        cal.colorMatrix1 = matrixOf(dng[0].colormatrix);
        const double k1 = illuminantKelvin(dng[0].illuminant);
        cal.illuminant1 = k1 > 0 ? k1 : 6504;
        if (dng[1].illuminant != 65535 && usable(&dng[1].colormatrix[0][0], 9)) {
            cal.colorMatrix2 = matrixOf(dng[1].colormatrix);
            const double k2 = illuminantKelvin(dng[1].illuminant);
            cal.illuminant2 = k2 > 0 ? k2 : 6504;
        }
        return cal;
    }
    if (usable(&d.color.cam_xyz[0][0], 9)) {
        cal.colorMatrix1 = matrixOf(d.color.cam_xyz);
        cal.illuminant1 = 6504;
        return cal;
    }
    cal.colorMatrix1 = kXyzToSrgb;
    cal.illuminant1 = 6504;
    return cal;
}

std::array<double, 3> normalisedMultipliers(const float* m) {
    if (!(m[0] > 0 && m[1] > 0 && m[2] > 0) || !std::isfinite(m[0] + m[1] + m[2])) return {};
    return {double(m[0]) / m[1], 1.0, double(m[2]) / m[1]};
}

std::string trimmed(const char* s) {
    std::string t(s);
    const auto first = t.find_first_not_of(' ');
    if (first == std::string::npos) return {};
    return t.substr(first, t.find_last_not_of(' ') - first + 1);
}

}  // namespace

std::unique_ptr<RawDecoder> RawDecoder::open(const std::string& path) {
    std::unique_ptr<RawDecoder> d(new RawDecoder());
    LibRaw& raw = d->impl_->raw;
    if (raw.open_file(path.c_str()) != LIBRAW_SUCCESS) return nullptr;
    const libraw_data_t& data = raw.imgdata;
    if (data.sizes.raw_width == 0 || data.sizes.width == 0 || data.idata.colors < 1) return nullptr;
    checkDimensions(data.sizes.raw_width, data.sizes.raw_height);
    checkDimensions(data.sizes.width, data.sizes.height);

    RawFacts& f = d->facts_;
    f.orientation = orientationOfFlip(data.sizes.flip);
    const bool swap = data.sizes.flip & 4;
    f.width = swap ? data.sizes.height : data.sizes.width;
    f.height = swap ? data.sizes.width : data.sizes.height;
    f.asShotMultipliers = normalisedMultipliers(data.color.cam_mul);
    if (f.asShotMultipliers[1] == 0)
        f.asShotMultipliers = normalisedMultipliers(data.color.pre_mul);
    if (f.asShotMultipliers[1] == 0) f.asShotMultipliers = {1, 1, 1};
    f.calibration = calibrationOf(data);
    f.make = trimmed(data.idata.make);
    f.model = trimmed(data.idata.model);
    f.lens = trimmed(data.lens.Lens);
    if (f.lens.empty()) f.lens = trimmed(data.lens.makernotes.Lens);
    f.focalLength = data.other.focal_len;
    f.aperture = data.other.aperture;
    f.iso = int(std::lround(data.other.iso_speed));
    return d;
}

namespace {

// A plain Bayer mosaic whose 2×2 pattern repeats: what the half-size development below reads.
bool plainBayer(LibRaw& raw) {
    const libraw_data_t& d = raw.imgdata;
    const unsigned f = d.idata.filters;
    return d.rawdata.raw_image && d.idata.colors == 3 && f > 1000 &&
           f == (f & 0xFF) * 0x01010101u && d.sizes.width >= 2 && d.sizes.height >= 2 &&
           raw.get_internal_data_pointer()->internal_output_params.fuji_width == 0;
}

// Each 2×2 block of sensor sites becomes one pixel: red, the mean of the two greens, blue.
// Levels, white balance, clipping and the camera matrix follow LibRaw's own development, so the
// proxy matches the full decode; there is no demosaicing to do, so this is one pass over the
// raw data instead of LibRaw's several.
Image superpixels(LibRaw& raw, const std::array<double, 3>& multipliers, const Execution& exec) {
    const libraw_data_t& d = raw.imgdata;
    const libraw_colordata_t& c = d.rawdata.color;  // as unpacked, before any development
    const int w = d.sizes.width / 2, h = d.sizes.height / 2;
    const int top = d.sizes.top_margin, left = d.sizes.left_margin;
    const size_t pitch = d.sizes.raw_pitch / 2;
    const uint16_t* sites = d.rawdata.raw_image;
    const double smallest = std::min({multipliers[0], multipliers[1], multipliers[2]});
    const double range = double(c.maximum) - double(c.black);
    if (!(smallest > 0) || !(range > 0)) throw DecodeError("the RAW file's levels are unusable");
    int channel[2][2];
    float black[2][2], gain[2][2];
    for (int r = 0; r < 2; ++r)
        for (int q = 0; q < 2; ++q) {
            const int k = raw.COLOR(r, q);
            channel[r][q] = k == 3 ? 1 : k;
            black[r][q] = float(c.black + c.cblack[k]);
            gain[r][q] = float(multipliers[size_t(channel[r][q])] / smallest / range);
        }
    const unsigned patternRows = c.cblack[4], patternCols = c.cblack[5];
    const bool pattern = patternRows > 0 && patternCols > 0 && patternRows * patternCols <= 4096;
    float m[9];
    for (int r = 0; r < 3; ++r)
        for (int q = 0; q < 3; ++q)
            m[r * 3 + q] = c.rgb_cam[r][q];
    Image out = Image::forOverwrite(w, h);
    // The usual sensor: one red, two greens, one blue and no black pattern. Each site's place in
    // the block is then fixed, and the loop is straight arithmetic the compiler vectorises.
    int red = -1, blue = -1, greens[2] = {-1, -1}, greenCount = 0;
    for (int i = 0; i < 4; ++i) {
        const int k = channel[i / 2][i % 2];
        if (k == 0) red = red < 0 ? i : 4;
        if (k == 2) blue = blue < 0 ? i : 4;
        if (k == 1 && greenCount < 2) greens[greenCount++] = i;
    }
    if (!pattern && red >= 0 && red < 4 && blue >= 0 && blue < 4 && greenCount == 2) {
        const auto clamp01 = [](float v) { return std::min(std::max(v, 0.0f), 1.0f); };
        const int sitesAt[4] = {red, greens[0], greens[1], blue};
        float siteBlack[4], siteGain[4];
        for (int i = 0; i < 4; ++i)
            siteBlack[i] = black[sitesAt[i] / 2][sitesAt[i] % 2],
            siteGain[i] = gain[sitesAt[i] / 2][sitesAt[i] % 2];
        const bool ok = parallelFor(0, h, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const uint16_t* pair = sites + size_t(2 * y + top) * pitch + size_t(left);
                const uint16_t* at[4];
                for (int i = 0; i < 4; ++i)
                    at[i] = pair + (sitesAt[i] / 2 ? pitch : 0) + size_t(sitesAt[i] % 2);
                float* dst = out.row(y);
                for (int x = 0; x < w; ++x, dst += 4) {
                    const float r = clamp01((float(at[0][2 * x]) - siteBlack[0]) * siteGain[0]);
                    const float g =
                        0.5f * (clamp01((float(at[1][2 * x]) - siteBlack[1]) * siteGain[1]) +
                                clamp01((float(at[2][2 * x]) - siteBlack[2]) * siteGain[2]));
                    const float b = clamp01((float(at[3][2 * x]) - siteBlack[3]) * siteGain[3]);
                    dst[0] = clamp01(m[0] * r + m[1] * g + m[2] * b);
                    dst[1] = clamp01(m[3] * r + m[4] * g + m[5] * b);
                    dst[2] = clamp01(m[6] * r + m[7] * g + m[8] * b);
                    dst[3] = 1;
                }
            }
        });
        return ok ? out : Image();
    }
    const bool ok = parallelFor(0, h, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            float* dst = out.row(y);
            for (int x = 0; x < w; ++x, dst += 4) {
                float sum[3] = {0, 0, 0}, count[3] = {0, 0, 0};
                for (int r = 0; r < 2; ++r)
                    for (int q = 0; q < 2; ++q) {
                        const int row = 2 * y + r, col = 2 * x + q;
                        float level = black[r][q];
                        if (pattern)
                            level +=
                                float(c.cblack[6 + (unsigned(row) % patternRows) * patternCols +
                                               unsigned(col) % patternCols]);
                        const float v =
                            (float(sites[size_t(row + top) * pitch + size_t(col + left)]) - level) *
                            gain[r][q];
                        const int k = channel[r][q];
                        sum[k] += std::min(std::max(v, 0.0f), 1.0f);
                        count[k] += 1;
                    }
                const float red = sum[0] / count[0], green = sum[1] / count[1],
                            blue = sum[2] / count[2];
                for (int k = 0; k < 3; ++k)
                    dst[k] = std::min(
                        std::max(m[k * 3] * red + m[k * 3 + 1] * green + m[k * 3 + 2] * blue, 0.0f),
                        1.0f);
                dst[3] = 1;
            }
        }
    });
    return ok ? out : Image();
}

}  // namespace

Image RawDecoder::develop(const std::array<double, 3>& multipliers, bool halfSize,
                          const Execution& exec) {
    std::lock_guard lock(mutex_);
    LibRaw& raw = impl_->raw;
    if (!impl_->unpacked) {
        const int r = raw.unpack();
        if (r != LIBRAW_SUCCESS) throw DecodeError(libraw_strerror(r));
        impl_->unpacked = true;
    }
    if (halfSize && plainBayer(raw)) {
        const Image half = superpixels(raw, multipliers, exec);
        return half.empty() ? half : orient(half, facts_.orientation, exec);
    }
    libraw_output_params_t& p = raw.imgdata.params;
    p.half_size = halfSize ? 1 : 0;
    for (int i = 0; i < 4; ++i)
        p.user_mul[i] = float(multipliers[size_t(i == 3 ? 1 : i)]);
    p.use_camera_wb = 0;
    p.use_auto_wb = 0;
    p.use_camera_matrix = 1;
    p.output_color = 1;  // sRGB primaries; the samples stay linear
    p.output_bps = 16;
    p.no_auto_bright = 1;
    p.highlight = 0;
    p.user_flip = -1;
    p.user_qual = 3;
    const int r = raw.dcraw_process();
    if (r != LIBRAW_SUCCESS) throw DecodeError(libraw_strerror(r));
    if (exec.cancelled()) return {};

    const libraw_data_t& d = raw.imgdata;
    const int w = d.sizes.iwidth, h = d.sizes.iheight;
    if (!d.image || w < 1 || h < 1) throw DecodeError("the RAW file gave no pixels");
    const int orientation = orientationOfFlip(d.sizes.flip);
    const bool swap = orientation >= 5;
    const int ow = swap ? h : w, oh = swap ? w : h;
    Image out = Image::forOverwrite(ow, oh);
    const auto* image = d.image;
    constexpr float kScale = 1.0f / 65535;
    const bool ok = parallelFor(0, oh, exec, [&](int y0, int y1) {
        for (int oy = y0; oy < y1; ++oy) {
            float* dst = out.row(oy);
            for (int ox = 0; ox < ow; ++ox, dst += 4) {
                const SourcePoint s = orientedSource(orientation, w, h, ox, oy);
                const auto* px = image[size_t(s.y) * size_t(w) + size_t(s.x)];
                dst[0] = px[0] * kScale, dst[1] = px[1] * kScale, dst[2] = px[2] * kScale;
                dst[3] = 1;
            }
        }
    });
    // The developed 16-bit copy is as large as half the float picture; only the sensor data
    // is kept for the next development.
    raw.free_image();
    return ok ? out : Image();
}

std::vector<uint8_t> RawDecoder::embeddedJpeg() {
    std::lock_guard lock(mutex_);
    LibRaw& raw = impl_->raw;
    if (raw.unpack_thumb() != LIBRAW_SUCCESS) return {};
    const libraw_thumbnail_t& t = raw.imgdata.thumbnail;
    if (t.tformat != LIBRAW_THUMBNAIL_JPEG || !t.thumb || t.tlength < 4) return {};
    const auto* bytes = reinterpret_cast<const uint8_t*>(t.thumb);
    if (bytes[0] != 0xFF || bytes[1] != 0xD8) return {};
    return std::vector<uint8_t>(bytes, bytes + t.tlength);
}

}  // namespace ql::img
