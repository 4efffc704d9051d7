#include "Execution.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace ql::img {

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
