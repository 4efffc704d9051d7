// The yardstick of the image benchmarks: one memory-bound copy pass over the same image, measured
// in the same run, so that figures read as "copy passes" and travel between machines.
#pragma once

#include <benchmark/benchmark.h>

#include "imaging/Image.h"

namespace ql::bench {

/// Seconds of the fastest of several full copies of `image`.
double copySeconds(const img::Image& image);

/// Records seconds per iteration as a multiple of the copy: the counter `copy_passes`.
void reportCopyPasses(benchmark::State& state, double secondsPerIteration, double copySeconds);

/// A 2400 × 1600 picture with detail and smooth areas, the preview size.
img::Image previewImage();

}  // namespace ql::bench
