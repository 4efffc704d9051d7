// Four floats in one vector register: one pixel's channels, or one channel of four pixels; and
// eight, for kernels that also build for wider registers.
#pragma once

#include <cstring>

namespace ql::img::simd {

using v4 = float __attribute__((vector_size(16)));
using v4i = int __attribute__((vector_size(16)));
using v8 = float __attribute__((vector_size(32)));
using v8i = int __attribute__((vector_size(32)));

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
[[gnu::always_inline]] inline v8 load8(const float* p) {
    v8 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
[[gnu::always_inline]] inline void store(float* p, v8 v) {
    std::memcpy(p, &v, sizeof v);
}

}  // namespace ql::img::simd
