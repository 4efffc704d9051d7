#include "Straighten.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "imaging/BoxShrink.h"
#include "imaging/GaussianBlur.h"
#include "imaging/LanczosScale.h"
#include "imaging/SrgbTransfer.h"

namespace ql::Straighten {
namespace {

constexpr int kWorkingLongEdge = 640;
constexpr int kMinSide = 33;
constexpr double kPreShrinkMargin = 1.5;
constexpr float kBlurSigma = 1.2f;
constexpr double kStrongQuantile = 0.9;
constexpr float kMinStrength = 0.08f;  // Sobel magnitude on encoded luminance, weights 1, 2, 1
constexpr int kBins = 201;
constexpr double kRange = 10;      // degrees either side of level
constexpr double kBinWidth = 0.1;  // degrees
// Per-pixel directions along one straight anti-aliased edge scatter by a few tenths of a degree;
// smoothing over about that much merges them into one peak without blurring two real ones.
constexpr double kSmoothingBins = 3;
constexpr double kPeakOverMean = 1.8;
constexpr double kSearch = 2, kSearchStep = 0.05;
// The projection counts only edges within this many degrees of the peak: the ±2° it searches,
// plus the scatter of single pixels. Texture leaning elsewhere would only add noise.
constexpr double kProjectionWindow = 4;
// Two families whose peaks lie this close (degrees) are taken for one scene standing straight:
// the Sobel directions of either may be off by a few percent of the angle.
constexpr double kFamiliesAgree = 1;
// A straight edge projects to a peak a few lines wide, at most a few more when slightly off;
// anything broader than this many lines either side is the scene's envelope, not an edge.
constexpr int kDetailRadius = 5;
constexpr double kLevelBelow = 0.1;
constexpr double kDegrees = 180 / M_PI;

using Histogram = std::array<double, kBins>;

/// A pixel on a strong edge.
struct Edgel {
    float x, y;       // pixel centre, relative to the picture's centre
    float weight;     // gradient magnitude × tent
    float lean;       // degrees, in the sense of Level::angle
    bool horizontal;  // on a near-horizontal edge (its gradient is near vertical)
};

/// The mean of each k × k block (partial blocks at the right and bottom average what they hold).
/// The picture shrunk to the working size and softened, so that the gradients see edges and not
/// noise or single-pixel texture. Empty when too small or cancelled.
img::Image working(const img::Image& image, const img::Execution& exec) {
    if (image.empty()) return {};
    const double s = std::min(1.0, double(kWorkingLongEdge) / image.longEdge());
    const int w = std::max(1, int(std::lround(image.width() * s)));
    const int h = std::max(1, int(std::lround(image.height() * s)));
    if (w < kMinSide || h < kMinSide) return {};
    // A Lanczos kernel stretched over a large shrink costs in proportion to the shrink.
    const img::Image small = img::shrinkTo(image, w, h, kPreShrinkMargin, exec);
    if (small.empty()) return {};
    return img::gaussianBlur(small, {kBlurSigma, img::EdgeMode::clamp}, exec);
}

/// Every pixel whose gradient is among the strongest tenth (and at least kMinStrength). Empty
/// when cancelled.
std::vector<Edgel> strongEdges(const img::Image& picture, const img::Execution& exec) {
    const int w = picture.width(), h = picture.height();
    const size_t n = picture.pixelCount();
    // Encoded luminance: a step reads as strong as it looks, whether in shadow or in the sky.
    std::vector<float> lum(n);
    const img::SrgbEncodeTable& encode = img::SrgbEncodeTable::shared();
    if (!img::parallelFor(0, h, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const float* p = picture.row(y);
                float* out = lum.data() + size_t(y) * size_t(w);
                for (int x = 0; x < w; ++x, p += 4)
                    out[x] = encode.clamped(img::luma(p[0], p[1], p[2]));
            }
        }))
        return {};

    // Sobel on the interior; the outermost ring gets a tent weight of almost 0 anyway.
    std::vector<float> gx(n, 0.0f), gy(n, 0.0f), magnitude(n, 0.0f);
    if (!img::parallelFor(1, h - 1, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y) {
                const float* a = lum.data() + size_t(y - 1) * size_t(w);
                const float* b = a + w;
                const float* c = b + w;
                const size_t at = size_t(y) * size_t(w);
                for (int x = 1; x < w - 1; ++x) {
                    const float dx =
                        (a[x + 1] - a[x - 1]) + 2 * (b[x + 1] - b[x - 1]) + (c[x + 1] - c[x - 1]);
                    const float dy =
                        (c[x - 1] - a[x - 1]) + 2 * (c[x] - a[x]) + (c[x + 1] - a[x + 1]);
                    gx[at + size_t(x)] = dx;
                    gy[at + size_t(x)] = dy;
                    magnitude[at + size_t(x)] = std::sqrt(dx * dx + dy * dy);
                }
            }
        }))
        return {};

    std::vector<float> interior;
    interior.reserve(size_t(w - 2) * size_t(h - 2));
    for (int y = 1; y < h - 1; ++y)
        interior.insert(interior.end(), magnitude.begin() + ptrdiff_t(y) * w + 1,
                        magnitude.begin() + ptrdiff_t(y) * w + w - 1);
    const size_t k =
        std::min(interior.size() - 1, size_t(kStrongQuantile * double(interior.size())));
    std::nth_element(interior.begin(), interior.begin() + ptrdiff_t(k), interior.end());
    const float threshold = std::max(interior[k], kMinStrength);

    std::vector<Edgel> edges;
    const float cx = 0.5f * float(w), cy = 0.5f * float(h);
    for (int y = 1; y < h - 1; ++y) {
        const float ty = 1 - std::abs(2 * (float(y) + 0.5f) / float(h) - 1);
        for (int x = 1; x < w - 1; ++x) {
            const size_t at = size_t(y) * size_t(w) + size_t(x);
            const float m = magnitude[at];
            if (!(m >= threshold)) continue;
            const float tx = 1 - std::abs(2 * (float(x) + 0.5f) / float(w) - 1);
            const float weight = tx * ty * m;
            if (!(weight > 0)) continue;
            // The gradient is normal to the edge. Folding its direction to the nearest multiple
            // of 90° gives the edge's deviation from horizontal (odd multiples) or vertical
            // (even ones). With rows running down, a horizon rising to the right by α has its
            // gradient at ±90° − α, and an upright turned the same way at 0° or 180° − α, so
            // the lean is the negated deviation in both cases.
            const double theta = std::atan2(double(gy[at]), double(gx[at])) * kDegrees;
            const double quarter = std::round(theta / 90);
            const double deviation = theta - 90 * quarter;
            const bool horizontal = (long(quarter) & 1) != 0;
            edges.push_back({float(x) + 0.5f - cx, float(y) + 0.5f - cy, weight, float(-deviation),
                             horizontal});
        }
    }
    return edges;
}

void accumulate(Histogram& histogram, double lean, double weight) {
    const double position = (lean + kRange) / kBinWidth;
    if (!(position >= 0 && position <= kBins - 1)) return;
    const int i = std::min(int(position), kBins - 2);
    const double f = position - i;
    histogram[size_t(i)] += weight * (1 - f);
    histogram[size_t(i) + 1] += weight * f;
}

Histogram smoothed(const Histogram& h) {
    const int radius = int(std::ceil(3 * kSmoothingBins));
    std::vector<double> kernel(size_t(radius) + 1);
    double sum = 0;
    for (int k = 0; k <= radius; ++k) {
        kernel[size_t(k)] = std::exp(-0.5 * k * k / (kSmoothingBins * kSmoothingBins));
        sum += k == 0 ? kernel[0] : 2 * kernel[size_t(k)];
    }
    Histogram out{};
    for (int i = 0; i < kBins; ++i) {
        double v = 0;
        for (int k = -radius; k <= radius; ++k)
            if (i + k >= 0 && i + k < kBins) v += h[size_t(i + k)] * kernel[size_t(std::abs(k))];
        out[size_t(i)] = v / sum;
    }
    return out;
}

struct Peak {
    double angle = 0;   // degrees
    double height = 0;  // smoothed weight at the peak
    double ratio = 0;   // height over the mean of the bins
};

/// The histogram's highest bin, refined by a parabola through its neighbours; nothing unless it
/// stands out from the mean.
std::optional<Peak> peakOf(const Histogram& raw) {
    const Histogram h = smoothed(raw);
    double total = 0;
    for (double v : h)
        total += v;
    const double mean = total / kBins;
    const auto top = std::max_element(h.begin(), h.end());
    const int i = int(top - h.begin());
    if (!(mean > 0) || !(*top >= kPeakOverMean * mean)) return std::nullopt;
    double offset = 0;
    if (i > 0 && i < kBins - 1) {
        const double l = h[size_t(i) - 1], c = h[size_t(i)], r = h[size_t(i) + 1];
        const double curvature = l - 2 * c + r;
        if (curvature < 0) offset = std::clamp(0.5 * (l - r) / curvature, -0.5, 0.5);
    }
    return Peak{-kRange + (i + offset) * kBinWidth, *top, *top / mean};
}

// Edges are spread over the lines by a Gaussian of one line's deviation, tabulated at fractional
// offsets. The usual two-line linear split would make the score depend on where pixel centres
// fall between lines: at 0° a whole column of pixels falls at the same fraction, so the pixel
// grid itself would pull the answer towards (or away from) level. With a Gaussian this wide the
// sum of squares no longer depends on that fraction.
constexpr int kTaps = 3;     // either side
constexpr int kPhases = 64;  // fractional offsets per line
using SplatTable = std::array<std::array<double, 2 * kTaps + 1>, kPhases>;

const SplatTable& splatTable() {
    static const SplatTable table = [] {
        SplatTable t{};
        for (int p = 0; p < kPhases; ++p) {
            double sum = 0;
            for (int k = -kTaps; k <= kTaps; ++k) {
                const double d = k - double(p) / kPhases;
                sum += t[size_t(p)][size_t(k + kTaps)] = std::exp(-0.5 * d * d);
            }
            for (double& w : t[size_t(p)])
                w /= sum;
        }
        return t;
    }();
    return table;
}

/// The sum of squares of what sets each line total apart from its neighbourhood. The totals' slow
/// envelope, the outline of the tent-weighted frame full of texture, is sharpest when the frame
/// and the rotated lines are parallel; left in, it would pull every answer towards 0.
double detailEnergy(const double* lines, int count, std::vector<double>& prefix) {
    prefix[0] = 0;
    for (int i = 0; i < count; ++i)
        prefix[size_t(i) + 1] = prefix[size_t(i)] + lines[i];
    double energy = 0;
    for (int i = 0; i < count; ++i) {
        const int lo = std::max(0, i - kDetailRadius), hi = std::min(count, i + kDetailRadius + 1);
        const double detail =
            lines[i] - (prefix[size_t(hi)] - prefix[size_t(lo)]) / double(hi - lo);
        energy += detail * detail;
    }
    return energy;
}

struct Families {
    bool horizontal, upright;
};

/// The angle near `start` at which the edges of the chosen families line up best: each candidate
/// rotation projects the near-horizontal edges onto the rows of the rotated frame and the upright
/// ones onto its columns, and the sum of squares of the row and column totals (their detail) is
/// largest when the straight edges fall into as few rows and columns as possible.
double refine(const std::vector<Edgel>& edges, double start, const Families& families, int width,
              int height, const img::Execution& exec) {
    std::vector<Edgel> used;
    for (const Edgel& e : edges)
        if ((e.horizontal ? families.horizontal : families.upright) &&
            std::abs(e.lean - start) <= kProjectionWindow)
            used.push_back(e);
    const int steps = int(std::lround(kSearch / kSearchStep));
    const int candidates = 2 * steps + 1;
    // The candidates inside ±kRange; the refined angle never leaves it.
    const int first = std::max(0, int(std::ceil((-kRange - start) / kSearchStep - 1e-9)) + steps);
    const int last =
        std::min(candidates - 1, int(std::floor((kRange - start) / kSearchStep + 1e-9)) + steps);
    if (first >= last) return start;
    std::vector<double> score(size_t(candidates), -1);
    // Rows first, then columns, in one array, with room for the splat's taps beyond the corners.
    const int offset = int(std::ceil(0.5 * std::hypot(double(width), double(height)))) + kTaps;
    const int lineCount = 2 * offset + 1;
    const SplatTable& splat = splatTable();
    img::parallelFor(first, last + 1, exec, [&](int c0, int c1) {
        std::vector<double> lines(size_t(2 * lineCount)), prefix(size_t(lineCount) + 1);
        for (int c = c0; c < c1; ++c) {
            const double angle = start + (c - steps) * kSearchStep;
            const double s = std::sin(angle / kDegrees), k = std::cos(angle / kDegrees);
            // Horizontal: distance along the normal (sin, cos) of a line rising by `angle`.
            // Upright: along the normal (cos, −sin) of a line turned the same way.
            std::fill(lines.begin(), lines.end(), 0.0);
            for (const Edgel& e : used) {
                const double position = (e.horizontal ? e.x * s + e.y * k : e.x * k - e.y * s) +
                                        offset + lineCount * !e.horizontal;
                const int phase = int(std::lround(position * kPhases));
                const int i = phase / kPhases;
                const double* w = splat[size_t(phase % kPhases)].data();
                double* line = &lines[size_t(i - kTaps)];
                for (int t = 0; t <= 2 * kTaps; ++t)
                    line[t] += e.weight * w[t];
            }
            score[size_t(c)] = detailEnergy(lines.data(), lineCount, prefix) +
                               detailEnergy(lines.data() + lineCount, lineCount, prefix);
        }
    });
    int best = first;
    for (int c = first; c <= last; ++c)
        if (score[size_t(c)] > score[size_t(best)]) best = c;
    // A best score at the end of the range means the lines line up better somewhere beyond it:
    // the projection confirms nothing here, so the histogram's peak stands.
    if (best == first || best == last) return start;
    return start + (best - steps) * kSearchStep;
}

}  // namespace

std::optional<Level> level(const img::Image& image, const img::Execution& exec) {
    const img::Image picture = working(image, exec);
    if (picture.empty()) return std::nullopt;
    const std::vector<Edgel> edges = strongEdges(picture, exec);
    if (edges.empty() || exec.cancelled()) return std::nullopt;

    Histogram horizontal{}, upright{};
    for (const Edgel& e : edges)
        accumulate(e.horizontal ? horizontal : upright, e.lean, e.weight);
    const std::optional<Peak> h = peakOf(horizontal), v = peakOf(upright);
    if (!h && !v) return std::nullopt;
    // The family with more edge weight behind its peak decides. When the other one agrees, both
    // are projected: a long horizon pins the angle far more precisely than short uprights, and
    // the other way round. When they disagree (lines converging in perspective), the other
    // family's edges near this angle belong to different lines and would only pull it away.
    const bool useHorizontal = h && (!v || h->height >= v->height);
    const Peak& peak = useHorizontal ? *h : *v;
    const bool agree = h && v && std::abs(h->angle - v->angle) <= kFamiliesAgree;
    const Families families{useHorizontal || agree, !useHorizontal || agree};

    double angle = refine(edges, peak.angle, families, picture.width(), picture.height(), exec);
    if (exec.cancelled()) return std::nullopt;
    if (std::abs(angle) < kLevelBelow) angle = 0;
    return Level{std::clamp(angle, -kRange, kRange), 1 - kPeakOverMean / peak.ratio};
}

}  // namespace ql::Straighten
