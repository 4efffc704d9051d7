// Four floats in one vector register: one pixel's channels, or one channel of four pixels.
#pragma once

#include <cstring>

namespace ql::img::simd {

using v4 = float __attribute__((vector_size(16)));
using v4i = int __attribute__((vector_size(16)));

inline v4 splat(float f) {
    return v4{f, f, f, f};
}
inline v4 load(const float* p) {
    v4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store(float* p, v4 v) {
    std::memcpy(p, &v, sizeof v);
}

}  // namespace ql::img::simd
