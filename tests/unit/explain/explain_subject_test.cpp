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

TEST(ExplainSubject, AcceptsARunningProcess) {
    const ServiceTests::ChildProcess child("/bin/cat", {"cat"});
    EXPECT_EQ(WhyNotExplained(child.Pid()), "");
}

TEST(ExplainSubject, ReportsThatAProcessDoesNotExist) {
    EXPECT_THAT(WhyNotExplained(0x7FFFFFFF), StartsWith("there is no process 2147483647"));
}

TEST(ExplainSubject, ReportsThatAProcessHasExited) {
    ServiceTests::ChildProcess child("/bin/cat", {"cat"});
    child.End();
    EXPECT_THAT(WhyNotExplained(child.Pid()), HasSubstr("has exited and waits for its parent to collect it"));
}

TEST(ExplainSubject, NamesTheProcessOfAThread) {
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

TEST(ExplainSubject, ReportsAKernelThread) {
    if (FileText("/proc/2/comm") != "kthreadd\n") {
        GTEST_SKIP() << "needs the initial pid namespace, to see a kernel thread";
    }
    EXPECT_THAT(WhyNotExplained(2), HasSubstr("is a kernel thread"));
}

}  // namespace
}  // namespace Host
