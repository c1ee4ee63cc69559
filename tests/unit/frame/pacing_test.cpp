#include "frame/pacing.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "tests/support/time_recorder.h"

namespace {

using std::chrono::microseconds;
using std::chrono::nanoseconds;

class Pacing : public testing::Test {
protected:
    void SetUp() override { TimeRecorder::Reset(); }
};

TEST_F(Pacing, SleepsForTheGivenTime) {
    for (const unsigned int length : {0U, 1U, 500U, 10000U, 999999U, 1000000U, 2500000U}) {
        TimeRecorder::Reset();
        Pause(length);
        EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>{microseconds(length)});
    }
}

TEST_F(Pacing, SleepsForTheRemainderAfterASignal) {
    TimeRecorder::InterruptNext(microseconds(300));
    TimeRecorder::InterruptNext(microseconds(100));
    Pause(500);
    EXPECT_EQ(TimeRecorder::Pauses(),
              (std::vector<nanoseconds>{microseconds(500), microseconds(300), microseconds(100)}));
    EXPECT_EQ(TimeRecorder::Slept(), microseconds(500));
}

TEST_F(Pacing, GivesUpOnAnyOtherError) {
    TimeRecorder::FailNext(EINVAL);
    Pause(500);
    EXPECT_EQ(TimeRecorder::Pauses().size(), 1U);
    EXPECT_EQ(TimeRecorder::Slept(), nanoseconds::zero());
}

}  // namespace
