// Refreshes and look-ups at the same time. The other threads run during the pauses of a refresh.
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <mutex>
#include <thread>

#include "forked_process.h"
#include "inspect_fixture.h"
#include "table_text.h"

namespace {

using std::chrono::seconds;

constexpr unsigned long inode = 5000;

class SocketTableThreads : public ProcInspectTest {
protected:
    void SetUp() override {
        realTasks_ = OwnedDescriptor(open("/proc/self/task", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        ProcInspectTest::SetUp();
        if (proc) {
            proc->AddFile("net/tcp", TableLine{}.Text());
        }
    }

    void TearDown() override {
        ProcInspectTest::TearDown();
        realTasks_ = OwnedDescriptor();
    }

    // True if that thread sleeps in the kernel, read from the real /proc.
    bool Sleeps(pid_t thread) const {
        const OwnedDescriptor stat(
            openat(realTasks_.Get(), (std::to_string(thread) + "/stat").c_str(), O_RDONLY | O_CLOEXEC));
        char text[512] = {};
        return read(stat.Get(), text, sizeof(text) - 1) > 0 && std::string(text).find(") S ") != std::string::npos;
    }

private:
    OwnedDescriptor realTasks_;
};

TEST_F(SocketTableThreads, ALookUpUsesTheOldTableDuringARefresh) {
    socketTable[inode] = {.inode = inode, .state = tcpListen, .firstSeen = 7};
    socketTable[6000] = {.inode = 6000, .state = tcpListen};
    int answers = 0;
    TimeRecorder::AtEachPause([&answers](size_t) {
        // In another thread, which would block if the refresh held the lock.
        std::packaged_task<bool()> lookUp([] {
            SocketInfo info;
            SocketInfo other;
            return FindSocketByInode(inode, info) && info.firstSeen == 7 && FindSocketByInode(6000, other);
        });
        std::future<bool> answer = lookUp.get_future();
        std::thread thread(std::move(lookUp));
        const bool answered = answer.wait_for(seconds(10)) == std::future_status::ready;
        EXPECT_TRUE(answered) << "the look-up waits for the refresh";
        if (!answered) {
            std::abort();  // the thread does not end
        }
        thread.join();
        EXPECT_TRUE(answer.get());
        ++answers;
    });
    RefreshSocketTable();
    EXPECT_EQ(answers, 3) << "at the line, the table and the entry";
    SocketInfo info;
    EXPECT_TRUE(FindSocketByInode(inode, info));
    EXPECT_EQ(info.state, tcpEstablished);
    EXPECT_FALSE(FindSocketByInode(6000, info));
}

TEST_F(SocketTableThreads, ASecondRefreshWaitsForTheFirst) {
    std::atomic<pid_t> second{0};
    std::atomic<bool> secondPaused{false};
    std::mutex orderLock;
    std::vector<pid_t> order;
    std::thread other;
    TimeRecorder::AtEachPause([&](size_t number) {
        const pid_t self = static_cast<pid_t>(syscall(SYS_gettid));
        {
            const std::lock_guard guard(orderLock);
            order.push_back(self);
        }
        if (self == second) {
            secondPaused = true;
        }
        if (number == 1) {
            other = std::thread([&second] {
                second = static_cast<pid_t>(syscall(SYS_gettid));
                RefreshSocketTable();
            });
            EXPECT_TRUE(AwaitInRealTime([&] { return second != 0 && (secondPaused || Sleeps(second)); }));
        }
    });
    RefreshSocketTable();
    other.join();

    ASSERT_EQ(order.size(), 6U);
    EXPECT_TRUE(std::is_partitioned(order.begin(), order.end(), [&](pid_t thread) { return thread != second; }));
    EXPECT_EQ(std::count(order.begin(), order.end(), second), 3);
    EXPECT_EQ(Log().size(), 2U) << "the sockets of the first refresh are not new to the second";
}

TEST_F(SocketTableThreads, ManyRefreshesAndLookUpsRunAtOnce) {
    TableLine known;
    std::string text = TableLine{}.Text();
    for (int i = 0; i < 50; ++i) {
        known.inode = std::to_string(6000 + i);
        text += known.Text();
    }
    proc->AddFile("net/tcp", text);
    RefreshSocketTable();
    std::atomic<bool> done{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 20; ++round) {
                RefreshSocketTable();
            }
        });
        threads.emplace_back([&done] {
            unsigned long missing = 0;
            while (!done) {
                SocketInfo info;
                missing += FindSocketByInode(inode, info) && info.remotePort == 4444 ? 0U : 1U;
            }
            EXPECT_EQ(missing, 0UL);
        });
    }
    threads[0].join();
    threads[2].join();
    done = true;
    threads[1].join();
    threads[3].join();
    EXPECT_EQ(socketTable.size(), 51U);
}

}  // namespace
