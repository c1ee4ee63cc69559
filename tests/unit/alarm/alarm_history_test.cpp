#include "alarm/alarm_history.h"

#include <gtest/gtest.h>

#include <atomic>
#include <barrier>
#include <cstdlib>
#include <thread>
#include <vector>

#include "frame/pacing.h"
#include "tests/support/emulation.h"
#include "tests/support/time_recorder.h"

namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using Pauses = std::vector<nanoseconds>;

constexpr microseconds walkPause(100);
constexpr milliseconds repeatPause(1);

// Returns the pauses of one call.
Pauses PausesOf(const std::string& key, bool repeated) {
    const size_t before = TimeRecorder::Pauses().size();
    EXPECT_EQ(IsRepeatedAlarm(key), repeated) << key;
    return {TimeRecorder::Pauses().begin() + static_cast<Pauses::difference_type>(before),
            TimeRecorder::Pauses().end()};
}

// The history outlives a test, so each test starts days after the previous one.
class AlarmHistory : public testing::Test {
protected:
    void SetUp() override {
        static hours start(0);
        TimeRecorder::Reset();
        TimeRecorder::Advance(start += hours(100));
    }

    // Fills the history with the keys "0" to count - 1 and nothing else. count is at least 1.
    static void Fill(size_t count) {
        TimeRecorder::Advance(hours(1));
        for (size_t i = 0; i < count; ++i) {
            ASSERT_FALSE(IsRepeatedAlarm(std::to_string(i)));
        }
    }

    // Moves the clock to this time before its next full second.
    static void StopShortOfTheNextSecond(microseconds distance) {
        const nanoseconds past = TimeRecorder::Slept() % seconds(1);
        Pause(static_cast<unsigned int>((seconds(1) - past - distance) / microseconds(1)));
    }
};

TEST_F(AlarmHistory, RepeatsAllCallsAfterTheFirst) {
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    EXPECT_TRUE(IsRepeatedAlarm("key"));
    EXPECT_TRUE(IsRepeatedAlarm("key"));
}

TEST_F(AlarmHistory, NeitherStoresNorDelaysAnEmptyKey) {
    Fill(20);
    EXPECT_EQ(PausesOf("", false), Pauses{});
    EXPECT_EQ(PausesOf("", false), Pauses{});
    // A 21st key would add a pause to each walk.
    EXPECT_EQ(PausesOf("19", true).size(), 6U);
}

TEST_F(AlarmHistory, ComparesKeysByLengthAndEveryByte) {
    const std::string keys[] = {"bash,1,4",
                                "bash,1,44",
                                "bash,1,",
                                "ash,1,44",
                                "Bash,1,44",
                                " ",
                                "  ",
                                std::string("a\0b", 3),
                                std::string("a\0c", 3),
                                std::string("a\0", 2),
                                "a",
                                std::string("\0", 1),
                                "\x01\x80\xff\n",
                                "\x01\x80\xfe\n",
                                std::string(100000, 'x'),
                                std::string(100001, 'x')};
    for (const std::string& key : keys) {
        EXPECT_FALSE(IsRepeatedAlarm(key)) << testing::PrintToString(key.substr(0, 20));
    }
    for (const std::string& key : keys) {
        EXPECT_TRUE(IsRepeatedAlarm(key)) << testing::PrintToString(key.substr(0, 20));
    }
}

TEST_F(AlarmHistory, AcceptsAKeyAgainAfterAnHour) {
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    TimeRecorder::Advance(seconds(3599));
    EXPECT_TRUE(IsRepeatedAlarm("key"));
    TimeRecorder::Advance(seconds(1));
    EXPECT_FALSE(IsRepeatedAlarm("key"));
}

TEST_F(AlarmHistory, StartsANewPeriodWhenAKeyIsAcceptedAgain) {
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    TimeRecorder::Advance(seconds(5000));
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    TimeRecorder::Advance(seconds(3599));
    EXPECT_TRUE(IsRepeatedAlarm("key"));
    TimeRecorder::Advance(seconds(1));
    EXPECT_FALSE(IsRepeatedAlarm("key"));
}

TEST_F(AlarmHistory, DoesNotExtendThePeriodOnRepeats) {
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    for (int minute = 1; minute < 60; ++minute) {
        TimeRecorder::Advance(seconds(60));
        EXPECT_TRUE(IsRepeatedAlarm("key")) << minute;
    }
    TimeRecorder::Advance(seconds(60));
    EXPECT_FALSE(IsRepeatedAlarm("key"));
}

TEST_F(AlarmHistory, AgesEachKeySeparately) {
    EXPECT_FALSE(IsRepeatedAlarm("first"));
    TimeRecorder::Advance(seconds(1800));
    EXPECT_FALSE(IsRepeatedAlarm("second"));
    TimeRecorder::Advance(seconds(1800));
    EXPECT_TRUE(IsRepeatedAlarm("second"));
    EXPECT_FALSE(IsRepeatedAlarm("first"));
    TimeRecorder::Advance(seconds(1800));
    EXPECT_FALSE(IsRepeatedAlarm("second"));
    EXPECT_TRUE(IsRepeatedAlarm("first"));
}

TEST_F(AlarmHistory, KeepsEveryKeyIfTheClockIsSetBack) {
    EXPECT_FALSE(IsRepeatedAlarm("first"));
    EXPECT_FALSE(IsRepeatedAlarm("second"));
    TimeRecorder::Advance(-hours(7));
    EXPECT_TRUE(IsRepeatedAlarm("first"));
    TimeRecorder::Advance(hours(7));
    EXPECT_TRUE(IsRepeatedAlarm("first"));
    TimeRecorder::Advance(seconds(3599));
    EXPECT_TRUE(IsRepeatedAlarm("first"));
    EXPECT_TRUE(IsRepeatedAlarm("second"));
    TimeRecorder::Advance(seconds(1));
    EXPECT_FALSE(IsRepeatedAlarm("first"));
    EXPECT_FALSE(IsRepeatedAlarm("second"));
}

TEST_F(AlarmHistory, StoresTheTimeBeforeTheFirstPause) {
    StopShortOfTheNextSecond(walkPause / 2);
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    TimeRecorder::Advance(seconds(3599));
    EXPECT_FALSE(IsRepeatedAlarm("key"));
}

TEST_F(AlarmHistory, AgesByTheTimeAfterTheFirstPause) {
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    StopShortOfTheNextSecond(walkPause / 2);
    TimeRecorder::Advance(seconds(3599));
    EXPECT_FALSE(IsRepeatedAlarm("key"));
}

TEST_F(AlarmHistory, AgesByTheTimeBeforeTheSecondPause) {
    EXPECT_FALSE(IsRepeatedAlarm("key"));
    StopShortOfTheNextSecond(walkPause * 3 / 2);
    TimeRecorder::Advance(seconds(3599));
    EXPECT_TRUE(IsRepeatedAlarm("key"));
}

// The death test runs in a new process, where the history is as at load.
TEST_F(AlarmHistory, IsEmptyAtLoad) {
    if (runsEmulated) {
        GTEST_SKIP() << startsNoProgram;
    }
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const bool asExpected = PausesOf("key", false) == Pauses(3, walkPause);
            std::_Exit(asExpected ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(AlarmHistory, PausesPer20KeysInBothWalks) {
    const struct {
        size_t keys;
        size_t pausesAWalk;
    } cases[] = {{1, 1}, {19, 1}, {20, 1}, {21, 2}, {40, 2}, {41, 3}, {45, 3}};
    for (const auto& row : cases) {
        Fill(row.keys);
        EXPECT_EQ(PausesOf("another", false), Pauses(3 + 2 * row.pausesAWalk, walkPause)) << row.keys;
    }
}

TEST_F(AlarmHistory, EndsTheSearchAtTheKeyWithALongerPause) {
    const struct {
        const char* key;
        size_t searchPauses;
    } cases[] = {{"0", 1}, {"1", 1}, {"19", 1}, {"20", 2}, {"21", 2}, {"39", 2}, {"40", 3}, {"44", 3}};
    Fill(45);
    for (const auto& row : cases) {
        Pauses expected(3 + 3 + row.searchPauses, walkPause);
        expected.push_back(repeatPause);
        EXPECT_EQ(PausesOf(row.key, true), expected) << row.key;
    }
}

TEST_F(AlarmHistory, PausesForDroppedKeysToo) {
    Fill(45);
    TimeRecorder::Advance(hours(1));
    EXPECT_EQ(PausesOf("0", false), Pauses(3 + 3, walkPause));
    // All other keys are gone.
    EXPECT_EQ(PausesOf("1", false), Pauses(3 + 2, walkPause));
}

TEST_F(AlarmHistory, DropsOldKeysOnARepeatToo) {
    Fill(20);
    TimeRecorder::Advance(seconds(1800));
    EXPECT_FALSE(IsRepeatedAlarm("young"));
    TimeRecorder::Advance(seconds(1800));
    EXPECT_EQ(PausesOf("young", true).size(), 3 + 2 + 1 + 1U);
    EXPECT_EQ(PausesOf("young", true).size(), 3 + 1 + 1 + 1U);
}

TEST_F(AlarmHistory, HasNoSizeLimit) {
    Fill(2000);
    EXPECT_TRUE(IsRepeatedAlarm("0"));
    EXPECT_EQ(PausesOf("another", false).size(), 3 + 2 * 100U);
}

TEST_F(AlarmHistory, ResumesAnInterruptedPause) {
    Fill(1);
    TimeRecorder::InterruptNext(microseconds(60));
    EXPECT_EQ(PausesOf("0", true),
              (Pauses{walkPause, microseconds(60), walkPause, walkPause, walkPause, walkPause, repeatPause}));
}

TEST_F(AlarmHistory, AcceptsAKeyInOneOfSeveralThreads) {
    constexpr int threadCount = 8;
    constexpr int rounds = 100;
    TimeRecorder::AtEachPause([](size_t) { std::this_thread::yield(); });
    std::vector<std::atomic<int>> firsts(rounds);
    std::barrier together(threadCount);
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&firsts, &together] {
            for (int round = 0; round < rounds; ++round) {
                together.arrive_and_wait();
                if (!IsRepeatedAlarm("key " + std::to_string(round))) {
                    ++firsts[static_cast<size_t>(round)];
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int round = 0; round < rounds; ++round) {
        EXPECT_EQ(firsts[static_cast<size_t>(round)], 1) << round;
    }
}

}  // namespace
