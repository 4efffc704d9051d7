// Four floats in one vector register: one pixel's channels, or one channel of four pixels; and
// eight, for kernels that also build for wider registers.
#pragma once

#include <cstring>

// A kernel built twice, for AVX2 and FMA and for any x86-64, the loader picking the one the
// processor runs. Under ThreadSanitizer the picking would run before the sanitizer is ready, so
// such builds keep the plain one.
#if defined(__SANITIZE_THREAD__)
#define QL_KERNEL_FOR_WIDE_REGISTERS
#else
#define QL_KERNEL_FOR_WIDE_REGISTERS [[gnu::target_clones("arch=x86-64-v3", "default")]]
#endif

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
