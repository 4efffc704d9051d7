#include "WhiteBalance.h"

#include <algorithm>
#include <cmath>

namespace ql::img {
namespace {

// Robertson's isotherms: reciprocal temperature in mired, the Planckian point in CIE 1960 uv
// and the slope dv/du of the isotherm through it. The u at 325 mired is the corrected 0.24792;
// the misprinted 0.24702 puts a kink in the locus.
struct Isotherm {
    double mired, u, v, slope;
};
constexpr Isotherm kIsotherms[] = {
    {0, 0.18006, 0.26352, -0.24341},   {10, 0.18066, 0.26589, -0.25479},
    {20, 0.18133, 0.26846, -0.26876},  {30, 0.18208, 0.27119, -0.28539},
    {40, 0.18293, 0.27407, -0.30470},  {50, 0.18388, 0.27709, -0.32675},
    {60, 0.18494, 0.28021, -0.35156},  {70, 0.18611, 0.28342, -0.37915},
    {80, 0.18740, 0.28668, -0.40955},  {90, 0.18880, 0.28997, -0.44278},
    {100, 0.19032, 0.29326, -0.47888}, {125, 0.19462, 0.30141, -0.58204},
    {150, 0.19962, 0.30921, -0.70471}, {175, 0.20525, 0.31647, -0.84901},
    {200, 0.21142, 0.32312, -1.0182},  {225, 0.21807, 0.32909, -1.2168},
    {250, 0.22511, 0.33439, -1.4512},  {275, 0.23247, 0.33904, -1.7298},
    {300, 0.24010, 0.34308, -2.0637},  {325, 0.24792, 0.34655, -2.4681},
    {350, 0.25591, 0.34951, -2.9641},  {375, 0.26400, 0.35200, -3.5814},
    {400, 0.27218, 0.35407, -4.3633},  {425, 0.28039, 0.35577, -5.3762},
    {450, 0.28863, 0.35714, -6.7262},  {475, 0.29685, 0.35823, -8.5955},
    {500, 0.30505, 0.35907, -11.324},  {525, 0.31320, 0.35968, -15.628},
    {550, 0.32129, 0.36011, -23.325},  {575, 0.32931, 0.36038, -40.770},
    {600, 0.33724, 0.36051, -116.45},
};
constexpr int kLast = int(std::size(kIsotherms)) - 1;

// Negative so that light above the locus (greener) gets a positive tint.
constexpr double kTintScale = -3000;

struct Uv {
    double u, v;
};
struct MiredTint {
    double mired, tint;
};

// Unit vector along isotherm i, towards larger u: the magenta side for every slope.
Uv direction(int i) {
    const double len = std::hypot(1.0, kIsotherms[i].slope);
    return {1 / len, kIsotherms[i].slope / len};
}

// The locus point and unit isotherm direction a fraction f of the way from isotherm i to i + 1.
struct Frame {
    double mired;
    Uv locus, along;
};
Frame frame(int i, double f) {
    const Isotherm &a = kIsotherms[i], &b = kIsotherms[i + 1];
    const Uv da = direction(i), db = direction(i + 1);
    const Uv d{da.u + f * (db.u - da.u), da.v + f * (db.v - da.v)};
    const double len = std::hypot(d.u, d.v);
    return {a.mired + f * (b.mired - a.mired),
            {a.u + f * (b.u - a.u), a.v + f * (b.v - a.v)},
            {d.u / len, d.v / len}};
}

MiredTint between(int i, double f, Uv p) {
    const Frame fr = frame(i, f);
    const double offset = (p.u - fr.locus.u) * fr.along.u + (p.v - fr.locus.v) * fr.along.v;
    return {fr.mired, offset * kTintScale};
}

// Robertson: the signed distances of p to successive isotherms change sign between the two
// isotherms that enclose it; interpolate between those in proportion.
MiredTint robertson(Uv p) {
    double previous = 0;
    for (int i = 0; i <= kLast; ++i) {
        const Uv d = direction(i);
        const double dist = (p.v - kIsotherms[i].v) * d.u - (p.u - kIsotherms[i].u) * d.v;
        if (i == 0 && dist <= 0) return between(0, 0, p);
        if (dist <= 0) return between(i - 1, previous / (previous - dist), p);
        previous = dist;
    }
    return between(kLast - 1, 1, p);
}

Uv toUv(Chromaticity c) {
    const double w = -2 * c.x + 12 * c.y + 3;
    return {4 * c.x / w, 6 * c.y / w};
}

Chromaticity toXy(Uv p) {
    const double w = 2 * p.u - 8 * p.v + 4;
    return {3 * p.u / w, 2 * p.v / w};
}

bool finite(const std::array<double, 3>& v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

std::array<double, 3> apply(const Matrix3& m, const std::array<double, 3>& v) {
    return {m[0] * v[0] + m[1] * v[1] + m[2] * v[2], m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
            m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
}

// Inverse by cofactors; nullopt when (nearly) singular for the matrix's scale.
std::optional<Matrix3> inverse(const Matrix3& m) {
    const Matrix3 c{
        m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
        m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
        m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
    const double det = m[0] * c[0] + m[1] * c[3] + m[2] * c[6];
    double scale = 0;
    for (double v : m)
        scale = std::max(scale, std::abs(v));
    if (!std::isfinite(det) || std::abs(det) <= 1e-12 * scale * scale * scale) return std::nullopt;
    Matrix3 r;
    for (int i = 0; i < 9; ++i)
        r[i] = c[i] / det;
    return r;
}

}  // namespace

TemperatureTint temperatureTint(Chromaticity white) {
    if (!std::isfinite(white.x) || !std::isfinite(white.y) || !(white.y > 0) ||
        !(-2 * white.x + 12 * white.y + 3 > 0))
        white = kD65White;
    const MiredTint mt = robertson(toUv(white));
    return {1e6 / std::max(mt.mired, 1e6 / kMaxKelvin), std::clamp(mt.tint, -kMaxTint, kMaxTint)};
}

Chromaticity chromaticity(TemperatureTint tt) {
    const double kelvin = std::isnan(tt.temperature) ? 6504 : tt.temperature;
    const double mired = 1e6 / std::clamp(kelvin, kMinKelvin, kMaxKelvin);
    const double tint = std::isnan(tt.tint) ? 0 : std::clamp(tt.tint, -kMaxTint, kMaxTint);

    // Stepping off the locus along the interpolated isotherm lands close to, but not exactly
    // on, the point Robertson's interpolation reads back; Newton steps close the gap.
    int i = 0;
    while (i < kLast - 1 && kIsotherms[i + 1].mired < mired)
        ++i;
    const Frame fr =
        frame(i, (mired - kIsotherms[i].mired) / (kIsotherms[i + 1].mired - kIsotherms[i].mired));
    const double offset = tint / kTintScale;
    Uv p{fr.locus.u + offset * fr.along.u, fr.locus.v + offset * fr.along.v};

    constexpr double h = 1e-7;
    for (int step = 0; step < 12; ++step) {
        const MiredTint r = robertson(p);
        const double em = mired - r.mired, et = tint - r.tint;
        if (std::abs(em) < 1e-11 * mired && std::abs(et) < 1e-9) break;
        const MiredTint ru = robertson({p.u + h, p.v}), rv = robertson({p.u, p.v + h});
        const double mu = (ru.mired - r.mired) / h, mv = (rv.mired - r.mired) / h;
        const double tu = (ru.tint - r.tint) / h, tv = (rv.tint - r.tint) / h;
        const double det = mu * tv - mv * tu;
        if (!(std::abs(det) > 0)) break;
        p.u += (em * tv - et * mv) / det;
        p.v += (et * mu - em * tu) / det;
    }
    return toXy(p);
}

double illuminantKelvin(int exifLightSource) {
    // Fluorescent classes at the middle of their ranges; plain "fluorescent" as cool white, the
    // commonest tube.
    struct Entry {
        int code;
        double kelvin;
    };
    static constexpr Entry kTable[] = {
        {1, 5500},   // daylight
        {2, 4150},   // fluorescent
        {3, 2856},   // tungsten
        {4, 5500},   // flash
        {9, 5500},   // fine weather
        {10, 6500},  // cloudy
        {11, 7500},  // shade
        {12, 6400},  // daylight fluorescent, 5700-7100 K
        {13, 5050},  // day white fluorescent, 4600-5500 K
        {14, 4150},  // cool white fluorescent, 3800-4500 K
        {15, 3525},  // white fluorescent, 3250-3800 K
        {16, 2925},  // warm white fluorescent, 2600-3250 K
        {17, 2856},  // standard A
        {18, 4874},  // standard B
        {19, 6774},  // standard C
        {20, 5503},  // D55
        {21, 6504},  // D65
        {22, 7504},  // D75
        {23, 5003},  // D50
        {24, 3200},  // ISO studio tungsten
    };
    for (const Entry& e : kTable)
        if (e.code == exifLightSource) return e.kelvin;
    return 0;
}

Matrix3 colorMatrixAt(const CameraCalibration& cal, Chromaticity white) {
    const double t1 = cal.illuminant1, t2 = cal.illuminant2;
    if (!cal.colorMatrix2 || !(t1 > 0) || !(t2 > 0) || !std::isfinite(t1) || !std::isfinite(t2) ||
        t1 == t2)
        return cal.colorMatrix1;
    const double mired = 1e6 / temperatureTint(white).temperature;
    const double g = std::clamp((mired - 1e6 / t2) / (1e6 / t1 - 1e6 / t2), 0.0, 1.0);
    Matrix3 m;
    for (int i = 0; i < 9; ++i)
        m[i] = g * cal.colorMatrix1[i] + (1 - g) * (*cal.colorMatrix2)[i];
    return m;
}

std::array<double, 3> cameraNeutral(const CameraCalibration& cal, Chromaticity white) {
    if (!std::isfinite(white.x) || !std::isfinite(white.y) || !(white.y > 0)) white = kD65White;
    const std::array<double, 3> xyz{white.x / white.y, 1, (1 - white.x - white.y) / white.y};
    const std::array<double, 3> n = apply(colorMatrixAt(cal, white), xyz);
    if (!finite(n) || !(n[1] > 0)) return {1, 1, 1};
    return {n[0] / n[1], 1, n[2] / n[1]};
}

Chromaticity neutralChromaticity(const CameraCalibration& cal, std::array<double, 3> neutral) {
    if (!finite(neutral) || !(neutral[0] > 0) || !(neutral[1] > 0) || !(neutral[2] > 0))
        return kD65White;
    Chromaticity xy = kD50White;
    for (int step = 0; step < 30; ++step) {
        const std::optional<Matrix3> inv = inverse(colorMatrixAt(cal, xy));
        if (!inv) return kD65White;
        const std::array<double, 3> xyz = apply(*inv, neutral);
        const double sum = xyz[0] + xyz[1] + xyz[2];
        const Chromaticity next{xyz[0] / sum, xyz[1] / sum};
        if (!finite(xyz) || !(sum > 0) || !(next.y > 0) || !std::isfinite(next.x)) return kD65White;
        const bool done = std::abs(next.x - xy.x) + std::abs(next.y - xy.y) < 1e-13;
        xy = next;
        if (done) break;
    }
    return xy;
}

TemperatureTint temperatureTint(const CameraCalibration& cal, std::array<double, 3> multipliers) {
    const std::array<double, 3>& m = multipliers;
    if (!finite(m) || !(m[0] > 0) || !(m[1] > 0) || !(m[2] > 0)) return temperatureTint(kD65White);
    return temperatureTint(neutralChromaticity(cal, {m[1] / m[0], 1, m[1] / m[2]}));
}

std::array<double, 3> multipliers(const CameraCalibration& cal, TemperatureTint tt) {
    // Capping rather than falling back to no correction keeps a tint slider monotonic.
    const std::array<double, 3> n = cameraNeutral(cal, chromaticity(tt));
    return {1 / std::max(n[0], 1 / kMaxMultiplier), 1, 1 / std::max(n[2], 1 / kMaxMultiplier)};
}

}  // namespace ql::img
