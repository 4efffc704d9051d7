// One worker thread that runs jobs in the order they were given, one at a time: the render
// queue of an editor session and its kin.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace ql {

class SerialQueue {
  public:
    SerialQueue();
    /// Runs what is still queued, then ends the thread.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    /// Queues `job`; it runs after every job queued before it. A job's exception is swallowed:
    /// one failed render must not end the queue.
    void async(std::function<void()> job);
    /// Returns once every job queued so far has run.
    void waitIdle();

  private:
    void run();
    std::mutex mutex_;
    std::condition_variable wake_, idle_;
    std::deque<std::function<void()>> jobs_;
    bool busy_ = false, stopping_ = false;
    std::thread thread_;
};

}  // namespace ql
