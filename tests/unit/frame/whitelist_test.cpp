#include "frame/whitelist.h"

#include <gtest/gtest.h>

#include "tests/support/time_recorder.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

class Whitelist : public testing::Test {
protected:
    void SetUp() override { TimeRecorder::Reset(); }
    void TearDown() override { ReplaceWhitelist({}); }
};

TEST_F(Whitelist, MatchesAnEntryThatIsThePrefixOfACommandLine) {
    const struct {
        std::string entry;
        std::string cmdline;
        bool ignored;
    } cases[] = {
        {"/usr/bin/backup", "/usr/bin/backup --all", true},
        {"/usr/bin/backup", "/usr/bin/backup", true},
        {"/usr/bin/backup", "/usr/bin/backups-of-somebody-else", true},
        {"/usr/bin/backup", "/usr/bin/backu", false},
        {"/usr/bin/backup", "sh /usr/bin/backup", false},
        {"bash *", "bash -i", false},
        {"bash *", "bash *.sh", true},
        {"", "anything", true},
        {"", "", true},
        {"a", "", false},
        {std::string("ab\0cd", 5), "ab", true},
    };
    for (const auto& row : cases) {
        ReplaceWhitelist({row.entry});
        EXPECT_EQ(IsCmdInIgnoreList(row.cmdline), row.ignored) << row.entry << " | " << row.cmdline;
    }
}

TEST_F(Whitelist, MatchesNothingIfEmptyButSleeps) {
    EXPECT_FALSE(IsCmdInIgnoreList("bash"));
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>{milliseconds(10)});
}

TEST_F(Whitelist, SleepsAfterEachEntryThatDoesNotMatch) {
    ReplaceWhitelist({"a", "b", "c"});
    EXPECT_TRUE(IsCmdInIgnoreList("c"));
    EXPECT_EQ(TimeRecorder::Pauses(),
              (std::vector<nanoseconds>{milliseconds(10), microseconds(500), microseconds(500)}));

    TimeRecorder::Reset();
    EXPECT_FALSE(IsCmdInIgnoreList("d"));
    EXPECT_EQ(TimeRecorder::Pauses(),
              (std::vector<nanoseconds>{milliseconds(10), microseconds(500), microseconds(500), microseconds(500)}));
}

TEST_F(Whitelist, KeepsTheReadersCopyWhenReplaced) {
    ReplaceWhitelist({"old"});
    const auto taken = CurrentWhitelist();
    ReplaceWhitelist({"new"});
    EXPECT_EQ(*taken, std::set<std::string>{"old"});
    EXPECT_EQ(*CurrentWhitelist(), std::set<std::string>{"new"});
}

}  // namespace
