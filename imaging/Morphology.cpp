#include "Morphology.h"
#include "Simd.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace ql::img {
namespace {

using namespace simd;

struct Min {
    v4 operator()(v4 a, v4 b) const { return a < b ? a : b; }
};
struct Max {
    v4 operator()(v4 a, v4 b) const { return a > b ? a : b; }
};

// Scratch for one thread.
struct Buffers {
    std::vector<v4> padded, pre, suf, span;
    explicit Buffers(int width)
        : padded(3 * size_t(width)), pre(padded.size()), suf(padded.size()), span(size_t(width)) {}
};

// span[x] = op over row[x - half … x + half] within the row, in O(1) per pixel whatever `half`
// (van Herk / Gil-Werman): extremes from each block start and to each block end, blocks as long
// as the window, so every window is one suffix plus one prefix.
template <class Op>
void slide(const v4* row, int width, int half, Buffers& b, Op op) {
    half = std::min(half, width - 1);  // a longer window sees the same row
    if (half == 0) {
        std::copy(row, row + width, b.span.begin());
        return;
    }
    const int n = width + 2 * half, L = 2 * half + 1;
    v4* a = b.padded.data();
    std::fill_n(a, half, row[0]);  // clamped: repeats only values the window holds anyway
    std::copy(row, row + width, a + half);
    std::fill_n(a + half + width, half, row[width - 1]);
    for (int s = 0; s < n; s += L) {
        const int e = std::min(s + L, n);
        v4 m = b.pre[size_t(s)] = a[s];
        for (int i = s + 1; i < e; ++i)
            b.pre[size_t(i)] = m = op(m, a[i]);
        m = b.suf[size_t(e - 1)] = a[e - 1];
        for (int i = e - 2; i >= s; --i)
            b.suf[size_t(i)] = m = op(m, a[i]);
    }
    for (int x = 0; x < width; ++x)
        b.span[size_t(x)] = op(b.suf[size_t(x)], b.pre[size_t(x + 2 * half)]);
}

// The disc as horizontal spans, grouped by width: rows first…last rows above and below the
// centre all have spans of ±half. Rows of one group are combined pixel by pixel first, so each
// group costs a single sliding pass.
struct Group {
    int half, first, last;
};

std::vector<Group> discGroups(double radius) {
    const double reach = radius + 0.5;
    std::vector<Group> groups;
    for (int dy = int(std::floor(reach)); dy >= 0; --dy) {
        const int half = int(std::floor(std::sqrt(reach * reach - double(dy) * dy)));
        if (!groups.empty() && groups.back().half == half)
            groups.back().first = dy;
        else
            groups.push_back({half, dy, dy});
    }
    return groups;
}

// One output row's extreme under `op`, built group by group.
template <class Op>
struct Fold {
    Op op;
    std::vector<v4> group, result;
    v4 whole{};
    bool grouped = false, spanned = false, wholeSeen = false;

    explicit Fold(int width) : group(size_t(width)), result(size_t(width)) {}
    void addRow(const float* row, int width) {
        if (!grouped)
            std::memcpy(group.data(), row, size_t(width) * sizeof(v4));
        else
            for (int x = 0; x < width; ++x)
                group[size_t(x)] = op(group[size_t(x)], load(row + 4 * x));
        grouped = true;
    }
    void addWholeRow(v4 extreme) {
        whole = wholeSeen ? op(whole, extreme) : extreme;
        wholeSeen = true;
    }
    void endGroup(int half, int width, Buffers& b) {
        if (!grouped) return;
        slide(group.data(), width, half, b, op);
        if (!spanned)
            result = b.span;
        else
            for (int x = 0; x < width; ++x)
                result[size_t(x)] = op(result[size_t(x)], b.span[size_t(x)]);
        spanned = true, grouped = false;
    }
    void endRow(int width) {
        if (wholeSeen)
            for (int x = 0; x < width; ++x)
                result[size_t(x)] = spanned ? op(result[size_t(x)], whole) : whole;
        spanned = wholeSeen = false;
    }
};

// Minimum and/or maximum over the disc; the gradient asks for both.
template <bool wantMin, bool wantMax>
Image morphology(const Image& input, const MorphologyParams& p, const Execution& exec) {
    if (input.empty() || !(p.radius >= 0.5f)) return input;
    const int w = input.width(), h = input.height();
    const std::vector<Group> groups = discGroups(std::min(double(p.radius), std::hypot(w, h)));
    // A span as wide as the picture holds its whole row: one value per row, found once.
    std::vector<v4> rowMin, rowMax;
    if (groups.back().half >= w - 1) {
        rowMin.resize(size_t(h)), rowMax.resize(size_t(h));
        if (!parallelFor(0, h, exec, [&](int y0, int y1) {
                for (int y = y0; y < y1; ++y) {
                    v4 lo = load(input.row(y)), hi = lo;
                    for (int x = 1; x < w; ++x) {
                        const v4 v = load(input.row(y) + 4 * x);
                        lo = Min{}(lo, v), hi = Max{}(hi, v);
                    }
                    rowMin[size_t(y)] = lo, rowMax[size_t(y)] = hi;
                }
            }))
            return Image{};
    }
    Image out = Image::forOverwrite(w, h);
    const bool done = parallelFor(0, h, exec, [&](int y0, int y1) {
        Buffers b(w);
        Fold<Min> lo(wantMin ? w : 0);
        Fold<Max> hi(wantMax ? w : 0);
        for (int y = y0; y < y1; ++y) {
            if (exec.cancelled()) return;  // large discs make long rows of work
            for (const Group& g : groups) {
                for (int dy = g.first; dy <= g.last; ++dy)
                    for (int yy : {y - dy, y + dy}) {
                        // Rows outside the picture are left out: their spans add nothing new.
                        if (yy < 0 || yy >= h || (dy == 0 && yy != y - dy)) continue;
                        if (g.half >= w - 1) {
                            if constexpr (wantMin) lo.addWholeRow(rowMin[size_t(yy)]);
                            if constexpr (wantMax) hi.addWholeRow(rowMax[size_t(yy)]);
                        } else {
                            if constexpr (wantMin) lo.addRow(input.row(yy), w);
                            if constexpr (wantMax) hi.addRow(input.row(yy), w);
                        }
                    }
                if constexpr (wantMin) lo.endGroup(g.half, w, b);
                if constexpr (wantMax) hi.endGroup(g.half, w, b);
            }
            if constexpr (wantMin) lo.endRow(w);
            if constexpr (wantMax) hi.endRow(w);
            float* o = out.row(y);
            if constexpr (wantMin && wantMax) {
                for (int x = 0; x < w; ++x) {
                    v4 g = hi.result[size_t(x)] - lo.result[size_t(x)];
                    g[3] = hi.result[size_t(x)][3];
                    std::memcpy(o + 4 * x, &g, sizeof g);
                }
            } else {
                std::memcpy(o, (wantMin ? lo.result : hi.result).data(), size_t(w) * sizeof(v4));
            }
        }
    });
    return done ? out : Image{};
}

}  // namespace

Image morphologyMinimum(const Image& input, const MorphologyParams& p, const Execution& exec) {
    return morphology<true, false>(input, p, exec);
}

Image morphologyMaximum(const Image& input, const MorphologyParams& p, const Execution& exec) {
    return morphology<false, true>(input, p, exec);
}

Image morphologyGradient(const Image& input, const MorphologyParams& p, const Execution& exec) {
    return morphology<true, true>(input, p, exec);
}

}  // namespace ql::img
