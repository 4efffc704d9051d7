#include "Execution.h"

#include <algorithm>
#include <thread>
#include <vector>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace ql::img {
namespace {

// Blurs and recursive filters decay toward zero in dark areas, where denormal floats would cost a
// hundred times a normal one; no picture can show the difference, so they are flushed to zero
// while image work runs, and the thread's own setting is restored afterwards.
class FlushDenormals {
  public:
#if defined(__SSE2__)
    FlushDenormals() : saved_(_mm_getcsr()) {
        _mm_setcsr(saved_ | 0x8040);
    }  // FTZ | DAZ
    ~FlushDenormals() {
        _mm_setcsr(saved_);
    }

  private:
    unsigned saved_;
#endif
};

}  // namespace

int Execution::threadCount() const {
    if (threads > 0) return threads;
    const unsigned hw = std::thread::hardware_concurrency();
    return hw > 0 ? static_cast<int>(hw) : 1;
}

bool parallelFor(int first, int last, const Execution& exec,
                 const std::function<void(int, int)>& body) {
    const int count = last - first;
    if (count <= 0) return !exec.cancelled();
    const int threads = std::min(exec.threadCount(), count);
    // Several chunks a thread balance uneven rows; a chunk stays large enough to amortise the
    // hand-out.
    const int chunks = std::min(count, threads * 8);
    std::atomic<int> next{0};
    auto worker = [&] {
        const FlushDenormals flush;
        for (int c = next.fetch_add(1); c < chunks; c = next.fetch_add(1)) {
            if (exec.cancelled()) return;
            const int begin = first + int(int64_t(count) * c / chunks);
            const int end = first + int(int64_t(count) * (c + 1) / chunks);
            body(begin, end);
        }
    };
    if (threads == 1) {
        worker();
    } else {
        std::vector<std::jthread> pool;
        pool.reserve(size_t(threads - 1));
        for (int t = 1; t < threads; ++t)
            pool.emplace_back(worker);
        worker();
    }
    return !exec.cancelled();
}

}  // namespace ql::img
