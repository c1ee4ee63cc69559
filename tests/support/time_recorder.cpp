#include "tests/support/time_recorder.h"

#include <cerrno>
#include <ctime>
#include <deque>

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
};

Recorder recorder;

}  // namespace

void TimeRecorder::Reset() {
    recorder = Recorder{};
}

const std::vector<nanoseconds>& TimeRecorder::Pauses() {
    return recorder.pauses;
}

nanoseconds TimeRecorder::Slept() {
    return recorder.slept;
}

void TimeRecorder::InterruptNext(nanoseconds left) {
    recorder.faults.push_back({EINTR, left});
}

void TimeRecorder::FailNext(int error) {
    recorder.faults.push_back({error, nanoseconds::zero()});
}

extern "C" {

int __wrap_nanosleep(const timespec* asked, timespec* left) {
    const nanoseconds length = std::chrono::seconds(asked->tv_sec) + nanoseconds(asked->tv_nsec);
    recorder.pauses.push_back(length);
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
    recorder.pauses.push_back(std::chrono::seconds(seconds));
    recorder.slept += std::chrono::seconds(seconds);
    return 0;
}

time_t __wrap_time(time_t* result) {
    const auto passed = std::chrono::duration_cast<std::chrono::seconds>(recorder.slept);
    const time_t now = recorder.start + static_cast<time_t>(passed.count());
    if (result != nullptr) {
        *result = now;
    }
    return now;
}
}
