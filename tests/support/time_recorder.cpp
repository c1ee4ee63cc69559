#include "tests/support/time_recorder.h"

#include <cerrno>
#include <ctime>
#include <deque>
#include <mutex>
#include <utility>

#include "tests/support/wrapped_calls.h"

using std::chrono::nanoseconds;

namespace {

struct Fault {
    int error;
    nanoseconds left;
};

struct Recorder {
    std::vector<nanoseconds> pauses;
    std::deque<Fault> faults;
    nanoseconds slept{};
    time_t start = 1000000;
    bool real = false;
    std::function<void(size_t)> hook;
    size_t pausesAtHook = 0;
};

std::mutex recorderLock;
Recorder recorder;

}  // namespace

void TimeRecorder::Reset() {
    const std::lock_guard guard(recorderLock);
    recorder = Recorder{};
}

void TimeRecorder::Advance(std::chrono::seconds length) {
    const std::lock_guard guard(recorderLock);
    recorder.start += static_cast<time_t>(length.count());
}

void TimeRecorder::UseRealTime() {
    const std::lock_guard guard(recorderLock);
    recorder.real = true;
}

void TimeRecorder::AtEachPause(std::function<void(size_t number)> hook) {
    const std::lock_guard guard(recorderLock);
    recorder.hook = std::move(hook);
    recorder.pausesAtHook = recorder.pauses.size();
}

const std::vector<nanoseconds>& TimeRecorder::Pauses() {
    return recorder.pauses;
}

nanoseconds TimeRecorder::Slept() {
    return recorder.slept;
}

void TimeRecorder::InterruptNext(nanoseconds left) {
    const std::lock_guard guard(recorderLock);
    recorder.faults.push_back({EINTR, left});
}

void TimeRecorder::FailNext(int error) {
    const std::lock_guard guard(recorderLock);
    recorder.faults.push_back({error, nanoseconds::zero()});
}

// True if the caller must really sleep.
static bool Record(nanoseconds length) {
    std::function<void(size_t)> hook;
    size_t number = 0;
    bool real = false;
    {
        const std::lock_guard guard(recorderLock);
        recorder.pauses.push_back(length);
        hook = recorder.hook;
        number = recorder.pauses.size() - recorder.pausesAtHook;
        real = recorder.real;
    }
    if (hook) {
        hook(number);
    }
    return real;
}

extern "C" {

int __wrap_nanosleep(const timespec* asked, timespec* left) {
    const nanoseconds length = std::chrono::seconds(asked->tv_sec) + nanoseconds(asked->tv_nsec);
    if (Record(length)) {
        return __real_nanosleep(asked, left);
    }
    const std::lock_guard guard(recorderLock);
    if (recorder.faults.empty()) {
        recorder.slept += length;
        return 0;
    }
    const Fault fault = recorder.faults.front();
    recorder.faults.pop_front();
    if (fault.error == EINTR) {
        recorder.slept += length - fault.left;
        if (left != nullptr) {
            left->tv_sec = static_cast<time_t>(fault.left.count() / 1000000000);
            left->tv_nsec = static_cast<long>(fault.left.count() % 1000000000);
        }
    }
    errno = fault.error;
    return -1;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    if (Record(std::chrono::seconds(seconds))) {
        return __real_sleep(seconds);
    }
    const std::lock_guard guard(recorderLock);
    recorder.slept += std::chrono::seconds(seconds);
    return 0;
}

time_t __wrap_time(time_t* result) {
    const std::lock_guard guard(recorderLock);
    if (recorder.real) {
        return __real_time(result);
    }
    const auto passed = std::chrono::duration_cast<std::chrono::seconds>(recorder.slept);
    const time_t now = recorder.start + static_cast<time_t>(passed.count());
    if (result != nullptr) {
        *result = now;
    }
    return now;
}
}
