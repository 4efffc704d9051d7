#include "SerialQueue.h"

namespace ql {

SerialQueue::SerialQueue() : thread_([this] { run(); }) {}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void SerialQueue::async(std::function<void()> job) {
    {
        std::lock_guard lock(mutex_);
        jobs_.push_back(std::move(job));
    }
    wake_.notify_one();
}

void SerialQueue::waitIdle() {
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [&] { return jobs_.empty() && !busy_; });
}

void SerialQueue::run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] { return stopping_ || !jobs_.empty(); });
        if (jobs_.empty()) return;  // stopping, and nothing left to run
        std::function<void()> job = std::move(jobs_.front());
        jobs_.pop_front();
        busy_ = true;
        lock.unlock();
        try {
            job();
        } catch (...) {
        }
        lock.lock();
        busy_ = false;
        if (jobs_.empty()) idle_.notify_all();
    }
}

}  // namespace ql
