#include "demo/apart.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <optional>

namespace Host {
namespace {

// Memory that the process started by RunApart shares with the test.
class Notes {
public:
    Notes()
        : parent_(static_cast<pid_t*>(
              ::mmap(nullptr, sizeof(pid_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~Notes() { ::munmap(parent_, sizeof(pid_t)); }
    Notes(const Notes&) = delete;
    Notes& operator=(const Notes&) = delete;

    pid_t& Parent() const { return *parent_; }

private:
    pid_t* parent_;
};

class RunApartTest : public testing::Test {
protected:
    void SetUp() override {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGTERM);
        ::sigprocmask(SIG_BLOCK, &signals, &before_);
    }
    void TearDown() override { ::sigprocmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_{};
};

TEST_F(RunApartTest, ReturnsTheStatusOfTheWork) {
    for (const int status : {0, 1, 7}) {
        EXPECT_EQ(RunApart([status] { return status; }), status);
    }
}

TEST_F(RunApartTest, WorkIsNotADescendantOfTheCaller) {
    const Notes notes;
    const pid_t caller = ::getpid();
    ASSERT_EQ(RunApart([&] {
                  notes.Parent() = ::getppid();
                  return 0;
              }),
              0);
    EXPECT_GT(notes.Parent(), 0);
    EXPECT_NE(notes.Parent(), caller);
    // The subreaper may be an ancestor of the caller, but not the intermediate process, which has exited.
    EXPECT_EQ(::kill(notes.Parent(), 0), 0);
}

TEST_F(RunApartTest, ReturnsNothingIfTheWorkIsKilled) {
    EXPECT_EQ(RunApart([] { return ::kill(::getpid(), SIGKILL); }), std::nullopt);
}

TEST_F(RunApartTest, ForwardsSignalsToTheWork) {
    const pid_t caller = ::getpid();
    EXPECT_EQ(RunApart([caller] {
                  ::kill(caller, SIGTERM);
                  sigset_t signals;
                  sigemptyset(&signals);
                  sigaddset(&signals, SIGTERM);
                  int number = 0;
                  ::sigwait(&signals, &number);
                  return number;
              }),
              SIGTERM);
}

}  // namespace
}  // namespace Host
