// The trailing argument of every image operation: how many threads it may use and whether the
// caller has given up. The one parallel mechanism of the engine lives here.
#pragma once

#include <atomic>
#include <functional>

namespace ql::img {

struct Execution {
    /// Threads an operation may use; 0 means one per hardware thread.
    int threads = 0;
    /// Set by the caller to stop work early; an operation then returns an empty image.
    const std::atomic<bool>* cancel = nullptr;

    bool cancelled() const { return cancel && cancel->load(std::memory_order_relaxed); }
    int threadCount() const;
};

/// Runs body(begin, end) over [first, last) split into contiguous chunks, on up to
/// `exec.threadCount()` threads, and returns when all are done. Chunks are independent, so the
/// result never depends on the thread count. Chunks not started yet are skipped once the caller
/// cancels. Returns false when cancelled.
bool parallelFor(int first, int last, const Execution& exec,
                 const std::function<void(int begin, int end)>& body);

}  // namespace ql::img
