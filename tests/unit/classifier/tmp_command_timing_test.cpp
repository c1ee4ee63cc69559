#include "tmp_command_fixture.h"

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

class TmpCommandTiming : public TmpCommandTest {
protected:
    void SetUp() override {
        TmpCommandTest::SetUp();
        if (!IsSkipped()) {
            tree->Add({.pid = parent, .ppid = 1, .exe = "/opt/app/server"});
            Write(parent, "stat", StatText(parent, 10s));
        }
    }

    static bool IsTyped(unsigned long long timestamp, unsigned long long suspended) {
        TPROC_INFO command = Command(601, timestamp);
        command.suspended = suspended;
        return IsTypedByHand(parent, {command});
    }
};

// The parent's start counts from boot. The time of an event omits the time for which the host was suspended.
TEST_F(TmpCommandTiming, RequiresTheFirstCommand200MsAfterItsParent) {
    const struct {
        unsigned long long sinceBoot;
        bool typed;
    } cases[] = {
        {0, false},           {9999999999, false}, {10000000000, false}, {10199000000, false},
        {10199999999, false}, {10200000000, true}, {10200000001, true},  {86400000000000, true},
    };
    for (const auto& row : cases) {
        for (const unsigned long long suspended : {0ULL, 1ULL, 999999999ULL, 7 * second, 9800000000ULL}) {
            if (suspended <= row.sinceBoot) {
                EXPECT_EQ(IsTyped(row.sinceBoot - suspended, suspended), row.typed)
                    << row.sinceBoot << " " << suspended;
            }
        }
    }
}

TEST_F(TmpCommandTiming, CountsASuspendBetweenTheParentAndTheCommand) {
    EXPECT_FALSE(IsTyped(10 * second + 100 * millisecond, 0));
    EXPECT_TRUE(IsTyped(10 * second + 100 * millisecond, 100 * millisecond));
}

TEST_F(TmpCommandTiming, IncludesASuspendBeforeTheParentsStart) {
    constexpr unsigned long long day = 86400 * second;
    Write(parent, "stat", StatText(parent, 24h + 10s));
    EXPECT_FALSE(IsTyped(10 * second + 199 * millisecond, day));
    EXPECT_TRUE(IsTyped(10 * second + 200 * millisecond, day));
    EXPECT_FALSE(IsTyped(10 * second + 200 * millisecond, 0)) << "earlier than its parent";
}

TEST_F(TmpCommandTiming, TakesTheBootAsTheStartOfAParentThatIsGone) {
    End(parent);
    EXPECT_FALSE(IsTyped(199 * millisecond, 0));
    EXPECT_TRUE(IsTyped(200 * millisecond, 0));
}

TEST_F(TmpCommandTiming, Requires200MsBetweenCommands) {
    const struct {
        std::vector<unsigned long long> gaps;  // in nanoseconds, after the first command
        bool typed;
    } cases[] = {
        {{}, true},
        {{200000000}, true},
        {{199999999}, false},
        {{0}, false},
        {{200000000, 200000000, 200000000}, true},
        {{200000000, 199999999, 200000000}, false},
        {{200000000, 200000000, 199999999}, false},
        {{50000000, 50000000, 50000000}, false},
        {{3600 * second, 200000000}, true},
    };
    for (const auto& row : cases) {
        std::vector<TPROC_INFO> commands = {Command(600, 20 * second)};
        for (const unsigned long long gap : row.gaps) {
            commands.push_back(Command(commands.back().pid + 1, commands.back().timestamp + gap));
        }
        EXPECT_EQ(IsTypedByHand(parent, commands), row.typed) << testing::PrintToString(row.gaps);
    }
}

TEST_F(TmpCommandTiming, IgnoresASuspendBetweenTwoCommands) {
    TPROC_INFO later = Command(602, 20 * second + 100 * millisecond);
    later.suspended = 3600 * second;
    EXPECT_FALSE(IsTypedByHand(parent, {Command(601, 20 * second), later}));
}

TEST_F(TmpCommandTiming, RejectsCommandsOutOfOrder) {
    EXPECT_FALSE(IsTypedByHand(parent, {Command(601, 21 * second), Command(602, 20 * second)}));
    EXPECT_EQ(Details(), std::vector<std::string>{"cmd process time error.[cmd1=21000000000 cmd2=20000000000]"});
}

TEST_F(TmpCommandTiming, LogsOnlyTheFirstBadPair) {
    EXPECT_FALSE(IsTypedByHand(parent, {Command(601, 20 * second), Command(602, 21 * second),
                                        Command(603, 21 * second + 199999999), Command(604, 21 * second + 200000000)}));
    EXPECT_EQ(Details(), std::vector<std::string>{"cmd process time error.[cmd1=21000000000 cmd2=21199999999]"});
}

TEST_F(TmpCommandTiming, LogsNothingForAnEarlyFirstCommand) {
    EXPECT_FALSE(IsTypedByHand(parent, {Command(601, 10 * second), Command(602, 10 * second)}));
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

}  // namespace
