// The distance both kinds of print are compared by.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace ql::vision {

/// Euclidean distance, summed in double so that long prints lose nothing to rounding.
template <size_t N>
float euclidean(const std::array<float, N>& a, const std::array<float, N>& b) {
    double sum = 0;
    for (size_t i = 0; i < N; ++i) {
        const double d = double(a[i]) - double(b[i]);
        sum += d * d;
    }
    return float(std::sqrt(sum));
}

}  // namespace ql::vision
