#include "AreaAverage.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace ql::img {

Pixel areaAverage(const Image& input, const AreaAverageParams& p, const Execution& exec) {
    // In 64 bits so that a far-off rectangle cannot overflow.
    const int x0 = int(std::clamp<int64_t>(p.x, 0, input.width()));
    const int x1 = int(std::clamp<int64_t>(int64_t(p.x) + p.width, x0, input.width()));
    const int y0 = int(std::clamp<int64_t>(p.y, 0, input.height()));
    const int y1 = int(std::clamp<int64_t>(int64_t(p.y) + p.height, y0, input.height()));
    if (x0 == x1 || y0 == y1) return {};
    std::vector<std::array<double, 4>> rows(size_t(y1 - y0));
    const bool done = parallelFor(y0, y1, exec, [&](int r0, int r1) {
        for (int y = r0; y < r1; ++y) {
            std::array<double, 4> sum{};
            const float* px = input.row(y) + size_t(x0) * 4;
            for (int x = x0; x < x1; ++x, px += 4)
                for (int c = 0; c < 4; ++c)
                    sum[size_t(c)] += px[c];
            rows[size_t(y - y0)] = sum;
        }
    });
    if (!done) return {};
    std::array<double, 4> total{};
    for (const auto& row : rows)
        for (size_t c = 0; c < 4; ++c)
            total[c] += row[c];
    const double n = double(x1 - x0) * double(y1 - y0);
    return {float(total[0] / n), float(total[1] / n), float(total[2] / n), float(total[3] / n)};
}

}  // namespace ql::img
