// A thread that does what it is told, one thing after the other.
#pragma once

#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <queue>
#include <thread>

namespace Host {

// Operations for one thread. The thread ends with the object, after what it was told.
class Worker {
public:
    Worker();
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // The answer of work, or what it threw, once it was done.
    std::future<bool> Do(std::function<bool()> work);

private:
    void Run();

    std::mutex mutex_;  // for the two below
    std::condition_variable changed_;
    std::queue<std::packaged_task<bool()>> work_;
    bool ended_ = false;
    std::thread thread_;
};

}  // namespace Host
