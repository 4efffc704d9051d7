// A tone curve as the cube reads it: a monotone cubic through the user's points, sampled once
// into a table so that a lookup is two reads and a blend.
#pragma once

#include <array>
#include <vector>

#include "edit/ToneCurves.h"

namespace ql {

class SampledCurve {
  public:
    static constexpr int kSize = 1024;

    /// Sorts the points by x and samples the monotone cubic (Fritsch–Carlson tangents) through
    /// them at i / 1023, clamped to 0…1. Fewer than two points give the plain ramp. Points with
    /// a non-finite coordinate are dropped, since they have no place on the curve.
    explicit SampledCurve(std::vector<CurvePoint> points);

    /// True only for exactly the points (0, 0), (1, 1): an empty or one-point curve samples as
    /// the ramp yet is not identity, so the cube that holds it is still baked.
    bool isIdentity() const { return identity_; }

    /// The table read at v clamped to 0…1 (NaN reads as 0), linear between entries.
    double lookup(double v) const {
        v = v > 0 ? (v < 1 ? v : 1) : 0;
        const double x = v * (kSize - 1);
        const int i = int(x);
        if (i >= kSize - 1) return table_[kSize - 1];
        return table_[size_t(i)] + (x - i) * (table_[size_t(i) + 1] - table_[size_t(i)]);
    }

    const std::array<double, kSize>& table() const { return table_; }

  private:
    std::array<double, kSize> table_;
    bool identity_ = false;
};

}  // namespace ql
