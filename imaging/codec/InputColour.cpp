#include "InputColour.h"

#include <array>
#include <cmath>
#include <mutex>
#include <vector>

#include <lcms2.h>

#include "OutputSamples.h"
#include "imaging/SrgbTransfer.h"

namespace ql::img {

struct InputColour::State {
    SampleLayout layout;
    bool fromProfile = false;
    // Table path: one linearising table per colour channel, then a 3×3 matrix unless identity.
    std::array<std::vector<float>, 3> curves;
    std::array<float, 9> matrix{1, 0, 0, 0, 1, 0, 0, 0, 1};
    bool identity = true;
    bool keepsCodes = false;
    // Profile path for what tables can't express (LUT-based profiles, CMYK, float samples).
    cmsHTRANSFORM transform = nullptr;

    ~State() {
        if (transform) cmsDeleteTransform(transform);
    }
};

namespace {

using Matrix = std::array<double, 9>;

// XYZ relative to D50 (the profile connection space) to linear sRGB, Bradford-adapted to D65.
constexpr Matrix kXyzD50ToLinearSrgb{3.1338561, -1.6168667, -0.4906146, -0.9787684, 1.9161415,
                                     0.0334540, 0.0719453,  -0.2289914, 1.4052427};
// Display P3 (D65) primaries, linear, to linear sRGB.
constexpr Matrix kP3ToLinearSrgb{1.2249401, -0.2249404, 0.0,        -0.0420569, 1.0420571,
                                 0.0,       -0.0196376, -0.0786361, 1.0982735};

Matrix multiply(const Matrix& a, const Matrix& b) {
    Matrix m{};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c)
            for (int k = 0; k < 3; ++k)
                m[size_t(r * 3 + c)] += a[size_t(r * 3 + k)] * b[size_t(k * 3 + c)];
    return m;
}

void silenceLcms() {
    static std::once_flag once;
    std::call_once(once, [] { cmsSetLogErrorHandler(nullptr); });
}

int tableSize(SampleType t) {
    return t == SampleType::u8 ? 256 : 65536;
}

// The sRGB curve sampled at every code of a sample type; built once per type, since every file
// without a profile needs it.
const std::vector<float>& srgbCurve(SampleType t) {
    const auto build = [](int n) {
        auto table = std::vector<float>(size_t(n));
        for (int i = 0; i < n; ++i)
            table[size_t(i)] = srgbDecode(float(double(i) / (n - 1)));
        return table;
    };
    if (t == SampleType::u8) {
        static const std::vector<float> eightBit = build(256);
        return eightBit;
    }
    static const std::vector<float> sixteenBit = build(65536);
    return sixteenBit;
}

void setMatrix(InputColour::State& s, const Matrix& m) {
    s.identity = true;
    for (size_t i = 0; i < 9; ++i) {
        s.matrix[i] = float(m[i]);
        if (std::abs(m[i] - (i % 4 == 0 ? 1.0 : 0.0)) > 2e-3) s.identity = false;
    }
}

std::shared_ptr<InputColour::State> srgbState(SampleLayout layout) {
    auto s = std::make_shared<InputColour::State>();
    s->layout = layout;
    if (layout.type != SampleType::f32) s->curves.fill(srgbCurve(layout.type));
    return s;
}

// Decided once per file: whether every code survives the round trip through linear light.
std::shared_ptr<InputColour::State> judged(std::shared_ptr<InputColour::State> s) {
    const SampleLayout& l = s->layout;
    s->keepsCodes =
        l.type == SampleType::u8 && l.channels == 3 && !l.cmyk && !s->transform && s->identity;
    for (size_t c = 0; c < 3 && s->keepsCodes; ++c)
        for (int code = 0; code < 256 && s->keepsCodes; ++code)
            s->keepsCodes = s->curves[c].size() == 256 && srgb8(s->curves[c][size_t(code)]) == code;
    return s;
}

cmsHPROFILE linearSrgbProfile() {
    const cmsCIExyY d65{0.3127, 0.3290, 1.0};
    const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1.0}, {0.30, 0.60, 1.0}, {0.15, 0.06, 1.0}};
    cmsToneCurve* linear = cmsBuildGamma(nullptr, 1.0);
    cmsToneCurve* curves[3] = {linear, linear, linear};
    cmsHPROFILE p = cmsCreateRGBProfile(&d65, &primaries, curves);
    cmsFreeToneCurve(linear);
    return p;
}

cmsUInt32Number lcmsFormat(const SampleLayout& l) {
    const int bytes = l.type == SampleType::u8 ? 1 : l.type == SampleType::u16 ? 2 : 0;
    const bool flt = l.type == SampleType::f32;
    if (l.cmyk)
        return COLORSPACE_SH(PT_CMYK) | CHANNELS_SH(4) | BYTES_SH(bytes) | FLOAT_SH(flt) |
               FLAVOR_SH(l.invertedCmyk ? 1 : 0);
    const int colour = l.colourChannels();
    return COLORSPACE_SH(colour == 1 ? PT_GRAY : PT_RGB) | CHANNELS_SH(colour) |
           EXTRA_SH(l.channels - colour) | BYTES_SH(bytes) | FLOAT_SH(flt);
}

// Matrix-shaper RGB and grey profiles (nearly every camera, phone and editor profile) become
// tables and one matrix: exact, and far faster than a general transform per pixel.
bool buildTables(InputColour::State& s, cmsHPROFILE profile) {
    const SampleLayout& l = s.layout;
    if (l.type == SampleType::f32 || l.cmyk || !cmsIsMatrixShaper(profile)) return false;
    const int n = tableSize(l.type);
    const auto sample = [n](cmsToneCurve* curve) {
        auto table = std::vector<float>(size_t(n));
        for (int i = 0; i < n; ++i)
            table[size_t(i)] = cmsEvalToneCurveFloat(curve, cmsFloat32Number(double(i) / (n - 1)));
        return table;
    };
    const cmsColorSpaceSignature space = cmsGetColorSpace(profile);
    if (space == cmsSigGrayData && l.colourChannels() == 1) {
        auto* curve = static_cast<cmsToneCurve*>(cmsReadTag(profile, cmsSigGrayTRCTag));
        if (!curve) return false;
        s.curves[0] = sample(curve);
        return true;
    }
    if (space != cmsSigRgbData || l.colourChannels() != 3) return false;
    const cmsTagSignature trcs[3] = {cmsSigRedTRCTag, cmsSigGreenTRCTag, cmsSigBlueTRCTag};
    const cmsTagSignature colorants[3] = {cmsSigRedColorantTag, cmsSigGreenColorantTag,
                                          cmsSigBlueColorantTag};
    Matrix toXyz{};
    for (int c = 0; c < 3; ++c) {
        auto* curve = static_cast<cmsToneCurve*>(cmsReadTag(profile, trcs[c]));
        auto* xyz = static_cast<cmsCIEXYZ*>(cmsReadTag(profile, colorants[c]));
        if (!curve || !xyz) return false;
        s.curves[size_t(c)] = sample(curve);
        toXyz[size_t(c)] = xyz->X, toXyz[size_t(3 + c)] = xyz->Y, toXyz[size_t(6 + c)] = xyz->Z;
    }
    setMatrix(s, multiply(kXyzD50ToLinearSrgb, toXyz));
    return true;
}

}  // namespace

InputColour InputColour::srgb(SampleLayout layout) {
    return InputColour(judged(srgbState(layout)));
}

InputColour InputColour::displayP3(SampleLayout layout) {
    auto s = srgbState(layout);
    setMatrix(*s, kP3ToLinearSrgb);
    return InputColour(judged(std::move(s)));
}

InputColour InputColour::fromIcc(std::span<const uint8_t> icc, SampleLayout layout) {
    silenceLcms();
    cmsHPROFILE profile =
        icc.empty() ? nullptr : cmsOpenProfileFromMem(icc.data(), cmsUInt32Number(icc.size()));
    if (!profile) return srgb(layout);
    auto s = std::make_shared<State>();
    s->layout = layout;
    s->fromProfile = true;
    if (!buildTables(*s, profile)) {
        const cmsColorSpaceSignature space = cmsGetColorSpace(profile);
        const bool fits = layout.cmyk                    ? space == cmsSigCmykData
                          : layout.colourChannels() == 1 ? space == cmsSigGrayData
                                                         : space == cmsSigRgbData;
        if (fits) {
            cmsHPROFILE out = linearSrgbProfile();
            s->transform = cmsCreateTransform(profile, lcmsFormat(layout), out, TYPE_RGB_FLT,
                                              INTENT_PERCEPTUAL, cmsFLAGS_NOCACHE);
            cmsCloseProfile(out);
        }
        if (!s->transform) {
            cmsCloseProfile(profile);
            return srgb(layout);
        }
    }
    cmsCloseProfile(profile);
    return InputColour(judged(std::move(s)));
}

bool InputColour::usesProfile() const {
    return state_->fromProfile;
}

bool InputColour::keepsEightBitCodes() const {
    return state_->keepsCodes;
}

namespace {

template <typename T>
float alphaOf(T v) {
    if constexpr (std::is_same_v<T, uint8_t>)
        return float(v) * (1.0f / 255);
    else if constexpr (std::is_same_v<T, uint16_t>)
        return float(v) * (1.0f / 65535);
    else
        return std::isfinite(v) ? std::clamp(v, 0.0f, 1.0f) : 1.0f;
}

template <typename T>
float linearOf(const InputColour::State& s, int channel, T v) {
    if constexpr (std::is_same_v<T, float>)
        return std::isfinite(v) ? v : 0.0f;
    else
        return s.curves[size_t(channel)][v];
}

// The naive print model for CMYK files that carry no profile.
template <typename T>
void cmykRow(const SampleLayout& l, const T* in, int width, float* out) {
    const SrgbDecodeTable& decode = SrgbDecodeTable::shared();
    for (int x = 0; x < width; ++x, in += 4, out += 4) {
        float ink[4];
        for (int c = 0; c < 4; ++c) {
            const float v = alphaOf(in[c]);
            ink[c] = l.invertedCmyk ? 1 - v : v;
        }
        for (int c = 0; c < 3; ++c)
            out[c] = decode((1 - ink[c]) * (1 - ink[3]));
        out[3] = 1;
    }
}

template <typename T>
void tableRow(const InputColour::State& s, const T* in, int width, float* out) {
    const SampleLayout& l = s.layout;
    if constexpr (!std::is_same_v<T, float>) {
        if (l.channels == 3 && s.identity) {
            // Opaque RGB in an sRGB-like space, nearly every photo: three lookups a pixel.
            const float *r = s.curves[0].data(), *g = s.curves[1].data(), *b = s.curves[2].data();
            for (int x = 0; x < width; ++x, in += 3, out += 4) {
                out[0] = r[in[0]], out[1] = g[in[1]], out[2] = b[in[2]], out[3] = 1;
            }
            return;
        }
    }
    const int n = l.channels;
    const bool alpha = l.hasAlpha();
    const float* m = s.matrix.data();
    for (int x = 0; x < width; ++x, in += n, out += 4) {
        float r, g, b;
        if (l.colourChannels() == 1) {
            r = g = b = linearOf(s, 0, in[0]);
        } else {
            r = linearOf(s, 0, in[0]), g = linearOf(s, 1, in[1]), b = linearOf(s, 2, in[2]);
            if (!s.identity) {
                const float r2 = m[0] * r + m[1] * g + m[2] * b;
                const float g2 = m[3] * r + m[4] * g + m[5] * b;
                b = m[6] * r + m[7] * g + m[8] * b;
                r = r2, g = g2;
            }
        }
        const float a = alpha ? alphaOf(in[n - 1]) : 1.0f;
        out[0] = r * a, out[1] = g * a, out[2] = b * a, out[3] = a;
    }
}

template <typename T>
void transformRow(const InputColour::State& s, const T* in, int width, float* out) {
    // lcms writes packed RGB; spread it to RGBA from the end so the row can be converted in place.
    cmsDoTransform(s.transform, in, out, cmsUInt32Number(width));
    const SampleLayout& l = s.layout;
    for (int x = width - 1; x >= 0; --x) {
        const float a = l.hasAlpha()
                            ? alphaOf(in[size_t(x) * size_t(l.channels) + size_t(l.channels - 1)])
                            : 1.0f;
        const float r = out[x * 3], g = out[x * 3 + 1], b = out[x * 3 + 2];
        out[x * 4] = r * a, out[x * 4 + 1] = g * a, out[x * 4 + 2] = b * a, out[x * 4 + 3] = a;
    }
}

template <typename T>
void convert(const InputColour::State& s, const void* samples, int width, float* rgba) {
    const T* in = static_cast<const T*>(samples);
    if (s.transform)
        transformRow(s, in, width, rgba);
    else if (s.layout.cmyk)
        cmykRow(s.layout, in, width, rgba);
    else
        tableRow(s, in, width, rgba);
}

}  // namespace

void InputColour::convertRow(const void* samples, int width, float* rgba) const {
    switch (state_->layout.type) {
        case SampleType::u8:
            return convert<uint8_t>(*state_, samples, width, rgba);
        case SampleType::u16:
            return convert<uint16_t>(*state_, samples, width, rgba);
        case SampleType::f32:
            return convert<float>(*state_, samples, width, rgba);
    }
}

}  // namespace ql::img
