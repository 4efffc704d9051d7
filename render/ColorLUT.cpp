#include "ColorLUT.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ql::ColorLUT {
namespace {

constexpr double kTwoPi = 2 * std::numbers::pi;
constexpr double kGuard = 1e-06;
constexpr std::array<double, 8> kBandCentre{0, 30, 60, 120, 180, 240, 270, 300};

double clamp01(double v) {
    return std::clamp(v, 0.0, 1.0);
}
double luma(double r, double g, double b) {
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
}

// The fully saturated colour of a hue, minus its luminance, scaled by the wheel's strength.
std::array<double, 3> wheelShift(const GradeWheel& w) {
    const double h = std::fmod(std::fmod(w.hue, 360.0) + 360, 360.0);
    const double f = h / 60;
    // Sectors by comparison rather than conversion, so a NaN hue picks a sector, not UB.
    const double s = f < 1 ? 0 : f < 2 ? 1 : f < 3 ? 2 : f < 4 ? 3 : f < 5 ? 4 : 5;
    const double c = f - s;
    std::array<double, 3> rgb;
    if (s == 0)
        rgb = {1, c, 0};
    else if (s == 1)
        rgb = {1 - c, 1, 0};
    else if (s == 2)
        rgb = {0, 1, c};
    else if (s == 3)
        rgb = {0, 1 - c, 1};
    else if (s == 4)
        rgb = {c, 0, 1};
    else
        rgb = {1, 0, 1 - c};
    const double y = luma(rgb[0], rgb[1], rgb[2]);
    const double k = w.saturation / 100;
    return {k * (rgb[0] - y), k * (rgb[1] - y), k * (rgb[2] - y)};
}

}  // namespace

Params::Params(const LUTKey& key)
    : master(key.values().curves.master),
      red(key.values().curves.red),
      green(key.values().curves.green),
      blue(key.values().curves.blue) {
    const Adjustments& a = key.values();
    contrast = a.contrast / 100;
    highlights = a.highlights / 100;
    shadows = a.shadows / 100;
    whites = a.whites / 100;
    blacks = a.blacks / 100;
    dehaze = a.dehaze / 100;
    vibrance = a.vibrance / 100;
    saturation = a.saturation / 100;
    for (size_t i = 0; i < 8; ++i) {
        mixH[i] = a.mixHue[i] / 100;
        mixS[i] = a.mixSaturation[i] / 100;
        mixL[i] = a.mixLuminance[i] / 100;
        hasMix = hasMix || mixH[i] != 0 || mixS[i] != 0 || mixL[i] != 0;
    }
    const std::array<const GradeWheel*, 4> grade{&a.gradeShadows, &a.gradeMidtones,
                                                 &a.gradeHighlights, &a.gradeGlobal};
    for (size_t i = 0; i < 4; ++i) {
        wheels[i] = wheelShift(*grade[i]);
        wheelLum[i] = grade[i]->luminance / 100;
        hasGrade = hasGrade || grade[i]->saturation != 0 || grade[i]->luminance != 0;
    }
    blending = a.gradeBlending / 100;
    balance = a.gradeBalance / 100;

    dehazeLift_ = dehaze * 0.06;
    curve_ = contrast + 0.25 * dehaze;
    satGain_ = saturation + 0.15 * dehaze;
    colourStep_ = hasMix || vibrance != 0 || dehaze != 0 || saturation != 0;
    centre_ = 0.5 + 0.3 * balance;
    spread_ = 0.25 * blending;
    shadowSpan_ = std::max(centre_ + spread_, kGuard);
    highlightLow_ = centre_ - spread_;
    highlightSpan_ = std::max(1 - highlightLow_, kGuard);
    midWidth_ = 0.18 + 0.3 * blending;
    for (size_t i = 0; i < 4; ++i)
        for (size_t c = 0; c < 3; ++c)
            gradeShift_[i][c] = 0.35 * wheels[i][c] + 0.25 * wheelLum[i];
}

double Params::applyTone(int channel, double v) const {
    if (dehaze != 0) v = (v - dehazeLift_) / (1 - dehazeLift_);
    if (blacks != 0) {
        const double o = std::max(1 - v, 0.0), o2 = o * o;
        v = v + blacks * 0.18 * (o2 * o2);
    }
    if (whites != 0) {
        const double o = std::max(v, 0.0), o2 = o * o;
        v = v + whites * 0.18 * (o2 * o2);
    }
    // Lowered highlights and raised shadows belong to the pipeline's recovery filter.
    if (highlights > 0) {
        const double z = (v - 0.72) / 0.2;
        v = v + highlights * 0.16 * std::exp(-(z * z));
    }
    if (shadows < 0) {
        const double z = (v - 0.28) / 0.2;
        v = v + shadows * 0.16 * std::exp(-(z * z));
    }
    if (curve_ != 0) {
        v = clamp01(v);
        v = v + (-0.55 * curve_) * std::sin(kTwoPi * v) / kTwoPi;
    }
    v = clamp01(v);

    if (!master.isIdentity()) v = master.lookup(v);
    const SampledCurve& own = channel == 0 ? red : channel == 1 ? green : blue;
    if (!own.isIdentity()) v = own.lookup(v);
    return v;
}

std::array<double, 3> Params::applyColour(double r, double g, double b) const {
    if (hasGrade) {
        const double l = luma(r, g, b);
        const double a = clamp01(l / shadowSpan_);
        const double u = clamp01((l - highlightLow_) / highlightSpan_);
        const double z = (l - centre_) / midWidth_;
        const std::array<double, 3> weight{1 - a * a * (3 - 2 * a), std::exp(-(z * z)),
                                           u * u * (3 - 2 * u)};
        for (size_t i = 0; i < 3; ++i) {
            if (!(weight[i] > 0)) continue;
            r += weight[i] * gradeShift_[i][0];
            g += weight[i] * gradeShift_[i][1];
            b += weight[i] * gradeShift_[i][2];
        }
        r = clamp01(r + gradeShift_[3][0]);
        g = clamp01(g + gradeShift_[3][1]);
        b = clamp01(b + gradeShift_[3][2]);
    }
    if (!colourStep_) return {r, g, b};

    const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
    double L = (mx + mn) / 2, H = 0, S = 0;
    const double delta = mx - mn;
    if (!(delta < 1e-09)) {
        S = L <= 0.5 ? delta / (mx + mn) : delta / (2 - mx - mn);
        if (mx == r)
            H = (g - b) / delta + (g < b ? 6 : 0);
        else if (mx == g)
            H = (b - r) / delta + 2;
        else
            H = (r - g) / delta + 4;
        H *= 60;
    }

    if (hasMix && S > 0.0001) {
        size_t i = 0;
        while (i < 7 && H >= kBandCentre[i + 1])
            ++i;
        const size_t j = (i + 1) % 8;
        const double next = i < 7 ? kBandCentre[i + 1] : 360;
        const double t = clamp01((H - kBandCentre[i]) / (next - kBandCentre[i]));
        const double B = t * t * (3 - 2 * t), A = 1 - B;
        const double dH = A * mixH[i] + B * mixH[j];
        const double dS = A * mixS[i] + B * mixS[j];
        const double dL = A * mixL[i] + B * mixL[j];
        // Nearly grey colours have no hue worth moving.
        const double k = std::min(2.5 * S, 1.0);
        H = std::fmod(H + 30 * dH * k + 360, 360.0);
        S = clamp01(S * (1 + k * dS));
        L = clamp01(L + 0.3 * dL * k * (1 - 0.5 * std::abs(2 * L - 1)));
    }

    if (vibrance != 0) {
        // Gentler on what is already saturated, on skin and on sky.
        const double hs = H > 180 ? H - 360 : H;
        const double zs = (hs - 25) / 25, zb = (H - 265) / 30;
        const double skin = std::exp(-(zs * zs)), sky = std::exp(-(zb * zb));
        const double gain = vibrance > 0 ? 1.2 : 1;
        S = clamp01(S * (1 + gain * (1 - S) * vibrance * (1 - 0.5 * skin) * (1 - 0.6 * sky)));
    }

    if (satGain_ != 0) S = std::min(S * (1 + satGain_), 1.0);
    if (!(S > 0)) return {L, L, L};

    const double qq = L < 0.5 ? L * (1 + S) : L + S - L * S;
    const double pp = 2 * L - qq;
    const double h = H / 360;
    return {hslToRGB(pp, qq, h + 1.0 / 3), hslToRGB(pp, qq, h), hslToRGB(pp, qq, h - 1.0 / 3)};
}

double hslToRGB(double p, double q, double t) {
    if (t < 0) t += 1;
    if (t > 1) t -= 1;
    if (t < 1.0 / 6) return p + (q - p) * 6 * t;
    if (t < 0.5) return q;
    if (t < 2.0 / 3) return p + (q - p) * (2.0 / 3 - t) * 6;
    return p;
}

std::vector<float> build(const LUTKey& key, const img::Execution& exec) {
    constexpr int n = kCubeSize;
    const Params params(key);
    // The first stage depends on one channel only, so it runs on the n grid values once.
    std::array<std::array<double, n>, 3> tone;
    for (int c = 0; c < 3; ++c)
        for (int i = 0; i < n; ++i)
            tone[size_t(c)][size_t(i)] = params.applyTone(c, i / double(n - 1));

    std::vector<float> cube(size_t(n) * n * n * 4);
    const bool done = img::parallelFor(0, n, exec, [&](int begin, int end) {
        for (int bi = begin; bi < end; ++bi) {
            float* out = cube.data() + size_t(bi) * n * n * 4;
            for (int gi = 0; gi < n; ++gi)
                for (int ri = 0; ri < n; ++ri, out += 4) {
                    const auto rgb = params.applyColour(tone[0][size_t(ri)], tone[1][size_t(gi)],
                                                        tone[2][size_t(bi)]);
                    out[0] = float(rgb[0]);
                    out[1] = float(rgb[1]);
                    out[2] = float(rgb[2]);
                    out[3] = 1;
                }
        }
    });
    if (!done) return {};
    return cube;
}

}  // namespace ql::ColorLUT
