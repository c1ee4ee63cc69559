// A thread that runs functions one after the other.
#pragma once

#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <queue>
#include <thread>

namespace Host {

// For one thread. The destructor waits until all functions have run, then ends the thread.
class Worker {
public:
    Worker();
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Queues work. The future has its result or its exception.
    std::future<bool> Do(std::function<bool()> work);

private:
    void Run();

    std::mutex mutex_;  // guards work_ and ended_
    std::condition_variable changed_;
    std::queue<std::packaged_task<bool()>> work_;
    bool ended_ = false;
    std::thread thread_;
};

}  // namespace Host
