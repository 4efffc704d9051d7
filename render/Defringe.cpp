#include "Defringe.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

#include "imaging/LanczosScale.h"
#include "imaging/Morphology.h"
#include "imaging/PixelMap.h"

namespace ql::Defringe {
namespace {

using img::Execution;
using img::Image;

double finiteOr(double v, double fallback) {
    return std::isfinite(v) ? v : fallback;
}

HueBand band(double loDegrees, double hiDegrees, double amount, double loDefault,
             double hiDefault) {
    const double lo = finiteOr(loDegrees, loDefault) / 360,
                 hi = finiteOr(hiDegrees, hiDefault) / 360;
    HueBand b;
    b.lo = lo - std::floor(lo);
    // A span of a whole turn or more takes every hue; a negative one wraps through red.
    const double span = hi - lo;
    b.hi = b.lo + (span >= 1 ? 2 : span - std::floor(span));
    b.amount = std::clamp(finiteOr(amount, 0), 0.0, 100.0) / 100;
    return b;
}

float smoothstep(float e0, float e1, float x) {
    const float t = std::clamp((x - e0) / (e1 - e0), 0.0f, 1.0f);
    return t * t * (3 - 2 * t);
}

// The band's weight for a hue in [0, 1), with soft edges 0.025 wide; where the band or its soft
// edges pass through red, the hue is also tried a turn up or down.
float bandWeight(const HueBand& b, float hue) {
    if (b.amount <= 0) return 0;
    if (b.hi - b.lo >= 1) return float(b.amount);
    const float lo = float(b.lo), hi = float(b.hi);
    const auto inside = [&](float h) {
        return smoothstep(lo - 0.025f, lo, h) * (1 - smoothstep(hi, hi + 0.025f, h));
    };
    float w = inside(hue);
    if (hi + 0.025f > 1) w = std::max(w, inside(hue + 1));
    if (lo - 0.025f < 0) w = std::max(w, inside(hue - 1));
    return w * float(b.amount);
}

// The hue sextant of a colour, 0 (red to yellow) to 5 (magenta to red), from the order of its
// channels, which the display encoding keeps; ties take the sextant of the branch tint() takes.
int sextant(float r, float g, float b) {
    if (r >= g && r >= b) return g >= b ? 0 : 5;
    if (g >= b) return b >= r ? 2 : 1;
    return r >= g ? 4 : 3;
}

// Whether a band, soft edges included, reaches into a sextant (closed intervals, a turn either
// way).
bool reaches(const HueBand& b, int s) {
    if (b.amount <= 0) return false;
    if (b.hi - b.lo >= 1) return true;
    for (int turn = -1; turn <= 1; ++turn)
        if ((s + 6.0 * turn) / 6 <= b.hi + 0.025 && (s + 1 + 6.0 * turn) / 6 >= b.lo - 0.025)
            return true;
    return false;
}

// The two bands of one call, with the sextants they reach, so that most colours are turned away
// before any power is taken.
struct Bands {
    HueBand purple, green;
    unsigned sextants = 0;

    Bands(const HueBand& p, const HueBand& g) : purple(p), green(g) {
        for (int s = 0; s < 6; ++s)
            if (reaches(p, s) || reaches(g, s)) sextants |= 1u << s;
    }
    bool neutral() const { return purple.amount <= 0 && green.amount <= 0; }
};

// Chroma and hue of the display-encoded colour, where fringes are judged as they look.
struct Tint {
    float chroma = 0, hue = 0;
};

Tint tint(const float* c) {
    const float mx = std::max({c[0], c[1], c[2]}), mn = std::min({c[0], c[1], c[2]});
    Tint t;
    t.chroma = std::isfinite(mx) ? mx - mn : 0;
    if (!(t.chroma > 1e-4f)) return t;
    float h;
    if (mx == c[0])
        h = (c[1] - c[2]) / t.chroma;
    else if (mx == c[1])
        h = (c[2] - c[0]) / t.chroma + 2;
    else
        h = (c[0] - c[1]) / t.chroma + 4;
    h /= 6;
    t.hue = h < 0 ? h + 1 : h;
    return t;
}

float colourful(float chroma) {
    return smoothstep(0.03f, 0.12f, chroma);
}

// A linear chroma of at most this stays below 0.03 once encoded (x^(1/2.2) − y^(1/2.2) is at
// most (x − y)^(1/2.2)), too faint to count.
constexpr float kFaintest = 4.4e-4f;

// The encoded tint of a pixel, or nothing (chroma 0) when it is too faint or lies in a sextant
// no band reaches.
Tint fringeTint(const float* px, const Bands& bands) {
    const float u = img::unpremultiplyScale(px[3]);
    float c[3];
    for (int i = 0; i < 3; ++i) {
        const float v = px[i] * u;
        c[i] = v > 0 ? v : 0;  // NaN lands on 0 too
    }
    const float mx = std::max({c[0], c[1], c[2]}), mn = std::min({c[0], c[1], c[2]});
    if (!(mx - mn > kFaintest) || !(bands.sextants >> sextant(c[0], c[1], c[2]) & 1)) return {};
    for (float& v : c)
        v = std::pow(v, 1 / 2.2f);
    return tint(c);
}

float fringeWeight(const float* px, const Bands& bands) {
    const Tint t = fringeTint(px, bands);
    if (t.chroma <= 0.03f) return 0;
    return std::max(bandWeight(bands.purple, t.hue), bandWeight(bands.green, t.hue)) *
           colourful(t.chroma);
}

// One float per pixel: the edge mask is worked out on luminance alone, a quarter of the memory
// traffic of a whole picture. Every pass writes all of it, so it starts uninitialised.
struct Plane {
    int w = 0, h = 0;
    std::unique_ptr<float[]> v;

    Plane() = default;
    Plane(int width, int height)
        : w(width), h(height), v(new float[size_t(width) * size_t(height)]) {}
    bool empty() const { return !v; }
    float* row(int y) { return v.get() + size_t(y) * size_t(w); }
    const float* row(int y) const { return v.get() + size_t(y) * size_t(w); }
};

// out[x] = the largest of in[x − half … x + half] within the row, in a constant number of steps
// per pixel whatever `half`: running maxima from each block start and to each block end, with
// blocks as long as the window, make every window one suffix and one prefix.
void slideMax(const float* in, int w, int half, float* out, std::vector<float>& scratch) {
    half = std::min(half, w - 1);
    if (half <= 0) {
        std::copy(in, in + w, out);
        return;
    }
    const int n = w + 2 * half, L = 2 * half + 1;
    scratch.resize(3 * size_t(n));
    float *a = scratch.data(), *pre = a + n, *suf = pre + n;
    std::fill_n(a, half, in[0]);  // the edge value repeats only what the window holds anyway
    std::copy(in, in + w, a + half);
    std::fill_n(a + half + w, half, in[w - 1]);
    for (int s = 0; s < n; s += L) {
        const int e = std::min(s + L, n);
        pre[s] = a[s];
        for (int i = s + 1; i < e; ++i)
            pre[i] = std::max(pre[i - 1], a[i]);
        suf[e - 1] = a[e - 1];
        for (int i = e - 2; i >= s; --i)
            suf[i] = std::max(suf[i + 1], a[i]);
    }
    for (int x = 0; x < w; ++x)
        out[x] = std::max(suf[x], pre[x + 2 * half]);
}

// The largest value within a disc of the given radius (the pixels whose centres lie within
// radius + ½), for values of at least 0. Rows of the disc with the same half-width are combined
// pixel by pixel first, so each distinct width costs one slide per row.
Plane dilate(const Plane& in, double radius, const Execution& exec) {
    const double reach = radius + 0.5;
    const int R = std::min(int(reach), std::max(in.w, in.h));
    std::vector<int> half(size_t(R) + 1);
    for (int dy = 0; dy <= R; ++dy)
        half[size_t(dy)] = int(std::sqrt(reach * reach - double(dy) * dy));
    Plane out(in.w, in.h);
    const bool done = img::parallelFor(0, in.h, exec, [&](int y0, int y1) {
        std::vector<float> group(size_t(in.w)), span(size_t(in.w)), scratch;
        for (int y = y0; y < y1; ++y) {
            float* o = out.row(y);
            std::fill_n(o, in.w, 0.0f);
            for (int first = 0; first <= R;) {
                int last = first;
                while (last < R && half[size_t(last) + 1] == half[size_t(first)])
                    ++last;
                bool any = false;
                for (int dy = first; dy <= last; ++dy)
                    for (int side = dy == 0 ? 1 : -1; side <= 1; side += 2) {
                        const int yy = y + side * dy;
                        if (yy < 0 || yy >= in.h) continue;
                        const float* r = in.row(yy);
                        if (!any)
                            std::copy(r, r + in.w, group.begin());
                        else
                            for (int x = 0; x < in.w; ++x)
                                group[size_t(x)] = std::max(group[size_t(x)], r[x]);
                        any = true;
                    }
                if (any) {
                    slideMax(group.data(), in.w, half[size_t(first)], span.data(), scratch);
                    for (int x = 0; x < in.w; ++x)
                        o[x] = std::max(o[x], span[size_t(x)]);
                }
                first = last + 1;
            }
        }
    });
    if (!done) return {};
    return out;
}

// The edge mask (see edges()), empty when cancelled.
Plane edgePlane(const Image& image, int longEdge, const Execution& exec) {
    const int w = image.width(), h = image.height();
    // Luminance under a square root, so that an edge in the shadows counts about as it looks.
    Plane lum(w, h);
    if (!img::parallelFor(0, h, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const float* px = image.row(y);
                float* o = lum.row(y);
                for (int x = 0; x < w; ++x, px += 4) {
                    const float u = img::unpremultiplyScale(px[3]);
                    const float l = img::luma(px[0] * u, px[1] * u, px[2] * u);
                    o[x] = l > 0 ? std::sqrt(l) : 0;  // NaN too
                }
            }
        }))
        return {};
    // Sobel magnitude (weights 1 2 1, edges clamped), then the ramp: a strong edge (a response of
    // a third and more) is fully on, faint texture stays off. The ramp is monotonic, so it may
    // come before the widening.
    Plane ramp(w, h);
    if (!img::parallelFor(0, h, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const float* up = lum.row(std::max(y - 1, 0));
                const float* mid = lum.row(y);
                const float* down = lum.row(std::min(y + 1, h - 1));
                float* o = ramp.row(y);
                for (int x = 0; x < w; ++x) {
                    const int l = std::max(x - 1, 0), r = std::min(x + 1, w - 1);
                    const float gx =
                        (up[r] + 2 * mid[r] + down[r]) - (up[l] + 2 * mid[l] + down[l]);
                    const float gy =
                        (down[l] + 2 * down[x] + down[r]) - (up[l] + 2 * up[x] + up[r]);
                    const float v = 3 * std::sqrt(gx * gx + gy * gy) - 0.15f;
                    o[x] = v > 0 ? (v < 1 ? v : 1) : 0;
                }
            }
        }))
        return {};
    // Widen by a share of the frame, so a fringe beside an edge lies inside; capped so that a
    // wild long edge cannot make the widening crawl.
    return dilate(ramp, std::clamp(double(longEdge) * 0.0015, 2.0, 64.0), exec);
}

// The defringe with the edge mask at hand; the estimator reuses one mask many times. One pass:
// each pixel moves toward its own luma (the colour controls at saturation 0) by the mask, as a
// blend through the mask would, and the hue test runs only where there is an edge.
Image defringeWith(const Image& image, const Plane& edge, const Bands& bands,
                   const Execution& exec) {
    if (edge.empty()) return {};
    const int w = image.width();
    Image out = Image::forOverwrite(w, image.height());
    const bool done = img::parallelFor(0, image.height(), exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            const float* px = image.row(y);
            const float* e = edge.row(y);
            float* o = out.row(y);
            for (int x = 0; x < w; ++x, px += 4, o += 4) {
                std::copy(px, px + 4, o);
                if (!(e[x] > 0)) continue;
                const float m = e[x] * fringeWeight(px, bands);
                if (m <= 0) continue;
                // Luma is linear, so the luma of premultiplied colour is the premultiplied grey.
                const float grey = px[3] > 0 ? img::luma(px[0], px[1], px[2]) : 0;
                for (int c = 0; c < 3; ++c)
                    o[c] = grey * m + px[c] * (1 - m);
            }
        }
    });
    return done ? out : Image{};
}

// Fringe colour in thin bands: the band-weighted, colourful chroma of each pixel less its
// morphological opening, which keeps areas wider than about 2 × radius and drops narrower ones.
// A real fringe is a few pixels wide; a purple or green object is not.
Image thinFringe(const Image& image, const HueBand& b, float radius, const Execution& exec) {
    const Bands bands(b, {});
    const Image f = img::mapPixels(image, exec, [&](const float* px, float* out) {
        const Tint t = fringeTint(px, bands);
        const float v =
            t.chroma > 0.03f ? bandWeight(b, t.hue) * colourful(t.chroma) * t.chroma : 0;
        out[0] = out[1] = out[2] = v;
        out[3] = 1;
    });
    const Image opened =
        img::morphologyMaximum(img::morphologyMinimum(f, {radius}, exec), {radius}, exec);
    if (f.empty() || opened.empty()) return {};
    return img::mapPixels2(f, opened, exec, [](const float* a, const float* o, float* out) {
        const float v = std::max(a[0] - o[0], 0.0f);
        out[0] = out[1] = out[2] = v;
        out[3] = 1;
    });
}

// Mean thin fringe colour over the edges, edge-weighted; NaN when cancelled.
double fringeOnEdges(const Image& image, const Plane& edge, const HueBand& b,
                     const Execution& exec) {
    const Image thin = thinFringe(image, b, 3, exec);
    if (thin.empty()) return NAN;
    double sum = 0, weight = 0;
    for (size_t i = 0, n = thin.pixelCount(); i < n; ++i) {
        sum += double(edge.v[i]) * thin.data()[4 * i];
        weight += edge.v[i];
    }
    return weight > 0 ? sum / weight : 0;
}

}  // namespace

HueBand purpleBand(const LensFix& lens) {
    return band(lens.purpleLo, lens.purpleHi, lens.purple, 250, 330);
}

HueBand greenBand(const LensFix& lens) {
    return band(lens.greenLo, lens.greenHi, lens.green, 75, 165);
}

Image fringeHue(const Image& image, const HueBand& purple, const HueBand& green,
                const Execution& exec) {
    if (image.empty()) return image;
    const Bands bands(purple, green);
    return img::mapPixels(image, exec, [&](const float* px, float* out) {
        out[0] = out[1] = out[2] = fringeWeight(px, bands);
        out[3] = 1;
    });
}

Image edges(const Image& image, int longEdge, const Execution& exec) {
    if (image.empty()) return image;
    const Plane edge = edgePlane(image, longEdge, exec);
    if (edge.empty()) return {};
    Image out = Image::forOverwrite(image.width(), image.height());
    for (size_t i = 0, n = out.pixelCount(); i < n; ++i) {
        float* o = out.data() + 4 * i;
        o[0] = o[1] = o[2] = edge.v[i];
        o[3] = 1;
    }
    return out;
}

Image apply(const Image& image, const LensFix& lens, int longEdge, const Execution& exec) {
    const Bands bands(purpleBand(lens), greenBand(lens));
    if (image.empty() || bands.neutral()) return image;
    return defringeWith(image, edgePlane(image, longEdge, exec), bands, exec);
}

FringeEstimate estimate(const Image& image, const LensFix& lens, const Execution& exec) {
    // Fringes are judged against their surroundings; a picture this small has none.
    if (image.width() < 16 || image.height() < 16) return {};
    Image small = image;
    if (image.longEdge() > 800)
        small = img::lanczosScale(image, {float(800.0 / image.longEdge())}, exec);
    const Plane edgeMask = edgePlane(small, small.longEdge(), exec);
    if (edgeMask.empty()) return {};

    const auto propose = [&](HueBand measured) {
        measured.amount = 1;
        const double before = fringeOnEdges(small, edgeMask, measured, exec);
        // Below this there is no fringe worth a slider: a few thousandths of chroma on edges.
        if (!(before > 0.004)) return 0.0;
        const auto after = [&](double amount) {
            HueBand removed = measured;
            removed.amount = amount / 100;
            const Image result = defringeWith(small, edgeMask, Bands(removed, {}), exec);
            return result.empty() ? NAN : fringeOnEdges(result, edgeMask, measured, exec);
        };
        const double full = after(100);
        // A correction that cannot take away a fifth of it is the wrong tool for this colour.
        if (!(full < 0.8 * before)) return 0.0;
        // The smallest amount, in steps of 5, that takes away 90% of what the full amount takes.
        const double goal = before - 0.9 * (before - full);
        int lo = 0, hi = 20;  // in steps: hi meets the goal, lo does not
        while (hi - lo > 1) {
            const int mid = (lo + hi) / 2;
            const double residual = after(5.0 * mid);
            if (std::isnan(residual)) return 0.0;
            (residual <= goal ? hi : lo) = mid;
        }
        return 5.0 * hi;
    };
    const FringeEstimate proposal{propose(purpleBand(lens)), propose(greenBand(lens))};
    return exec.cancelled() ? FringeEstimate{} : proposal;
}

}  // namespace ql::Defringe
