#include "demo/worker.h"

#include <utility>

namespace Host {

Worker::Worker() : thread_([this] { Run(); }) {}

Worker::~Worker() {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    changed_.notify_one();
    thread_.join();
}

std::future<bool> Worker::Do(std::function<bool()> work) {
    std::packaged_task<bool()> task(std::move(work));
    std::future<bool> answer = task.get_future();
    {
        const std::lock_guard lock(mutex_);
        work_.push(std::move(task));
    }
    changed_.notify_one();
    return answer;
}

void Worker::Run() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return ended_ || !work_.empty(); });
        if (work_.empty()) {
            return;
        }
        std::packaged_task<bool()> task = std::move(work_.front());
        work_.pop();
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace Host
