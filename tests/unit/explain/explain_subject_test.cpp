#include "host/explain/explain_subject.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/temporary_directory.h"

namespace Host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(ExplainSubject, RunningProcessCanBeExplained) {
    const ServiceTests::ChildProcess child("/bin/cat", {"cat"});
    EXPECT_EQ(WhyNotExplained(child.Pid()), "");
}

TEST(ExplainSubject, AbsentProcessIsTold) {
    EXPECT_THAT(WhyNotExplained(0x7FFFFFFF), StartsWith("there is no process 2147483647"));
}

TEST(ExplainSubject, EndedProcessIsTold) {
    ServiceTests::ChildProcess child("/bin/cat", {"cat"});
    child.End();
    EXPECT_THAT(WhyNotExplained(child.Pid()), HasSubstr("has ended and only waits to be collected"));
}

TEST(ExplainSubject, ThreadNamesItsProcess) {
    std::atomic<int> id{0};
    std::atomic<bool> done{false};
    std::thread thread([&] {
        id = static_cast<int>(syscall(SYS_gettid));
        id.notify_all();
        done.wait(false);
    });
    id.wait(0);
    EXPECT_THAT(WhyNotExplained(id), HasSubstr("is a thread of process " + std::to_string(getpid())));
    done = true;
    done.notify_all();
    thread.join();
}

TEST(ExplainSubject, KernelThreadIsTold) {
    if (FileText("/proc/2/comm") != "kthreadd\n") {
        GTEST_SKIP() << "no kernel thread is seen in this pid namespace";
    }
    EXPECT_THAT(WhyNotExplained(2), HasSubstr("is a thread of the kernel"));
}

}  // namespace
}  // namespace Host
