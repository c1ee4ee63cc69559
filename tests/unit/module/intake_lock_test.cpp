// The lock of the intake map, with the callback and the task on threads of their own.
#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "module/process_intake.h"
#include "tests/support/instant_scan_fixture.h"

namespace {

class IntakeLock : public InstantScanTest {
protected:
    // Above the kernel's largest pid.
    static constexpr int firstPid = 5000000;
    static constexpr int parentPid = 4999999;
    static constexpr int processes = 50;

    // The real /proc is hidden while the tree is mounted.
    IntakeLock() : realTasks_(open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) { intakeMap.clear(); }
    ~IntakeLock() override {
        intakeMap.clear();
        close(realTasks_);
    }

    static void ReportFork(int pid) {
        proc_event event{};
        event.what = decltype(event.what)::PROC_EVENT_FORK;
        event.event_data.fork.parent_pid = pid;
        OnProcessEvent(&event);
    }

    // Runs work on another thread while this one holds the lock. Returns whether work waits for the lock.
    bool WaitsForTheLock(const std::function<void()>& work) const {
        constexpr int looksAtASleeper = 20;
        std::atomic<pid_t> worker{0};
        std::atomic<bool> hasEnded{false};
        pidMapLock.lock();
        std::thread thread([&] {
            worker = static_cast<pid_t>(syscall(SYS_gettid));
            work();
            hasEnded = true;
        });
        int asleep = 0;
        for (int look = 0; look < 10000 && !hasEnded && asleep < looksAtASleeper; ++look) {
            poll(nullptr, 0, 1);
            asleep = worker != 0 && Sleeps(worker) ? asleep + 1 : 0;
        }
        const bool waits = !hasEnded;
        pidMapLock.unlock();
        thread.join();
        return waits;
    }

private:
    bool Sleeps(pid_t thread) const {
        const int stat = openat(realTasks_, (std::to_string(thread) + "/stat").c_str(), O_RDONLY | O_CLOEXEC);
        char text[512] = {};
        const bool sleeps =
            read(stat, text, sizeof(text) - 1) > 0 && std::string(text).find(") S ") != std::string::npos;
        close(stat);
        return sleeps;
    }

    const int realTasks_;
};

TEST_F(IntakeLock, IsTakenByTheCallback) {
    AddShell(firstPid, parentPid);
    EXPECT_TRUE(WaitsForTheLock([] { ReportFork(firstPid); }));
    EXPECT_TRUE(intakeMap.contains(firstPid));
}

TEST_F(IntakeLock, IsTakenByTheTask) {
    intakeMap[firstPid] = 1;
    EXPECT_TRUE(WaitsForTheLock([] { CheckNetlinkProcsTask(nullptr); }));
    EXPECT_TRUE(intakeMap.empty());
}

// The thread sanitizer reports a race here if one of the two does not take the lock.
TEST_F(IntakeLock, LetsTheCallbackAndTheTaskRunAtOnce) {
    for (int pid = firstPid; pid < firstPid + processes; ++pid) {
        AddShell(pid, parentPid);
    }
    std::atomic<bool> hasEnded{false};
    std::thread task([&hasEnded] {
        while (!hasEnded) {
            CheckNetlinkProcsTask(nullptr);
        }
    });
    for (int pid = firstPid; pid < firstPid + processes; ++pid) {
        ReportFork(pid);
    }
    hasEnded = true;
    task.join();
    EXPECT_EQ(intakeMap.size(), static_cast<size_t>(processes) + 1) << "each process and their parent";
}

}  // namespace
