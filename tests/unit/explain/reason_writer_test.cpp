#include "host/explain/reason_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;
using Asked = Trace::Test;

class ReasonWriterTest : public testing::Test {
protected:
    static HostProcess Process(int pid, const char* name) {
        return {.pid = pid, .ppid = 1, .name = name, .cmdline = name, .descriptors = {}};
    }

    // All reasons in one line, each as its mark and text.
    std::string Written(const std::vector<Decision>& decisions) {
        ReasonWriter writer(scene_);
        std::string written;
        for (const Decision& decision : decisions) {
            for (const Reason& reason : writer.Take(decision)) {
                const char* const mark = reason.mark == Mark::ok ? "ok" : reason.mark == Mark::no ? "no" : "note";
                written += (written.empty() ? "" : "; ") + std::string(mark) + " " + reason.text;
            }
        }
        return written;
    }

    static Decision Of(Asked test, bool outcome, unsigned long inode = 0, int other = 0) {
        return {.test = test, .pid = 10, .outcome = outcome, .other = other, .inode = inode, .text = {}};
    }

    const Scene scene_{.pid = 10,
                       .processes = {{10, Process(10, "bash")}, {11, Process(11, "cat")}, {12, Process(12, "nc")}},
                       .connections = {{7, {.protocol = "tcp", .local = "a:1", .remote = "b:2", .foreign = true}}}};
};

TEST_F(ReasonWriterTest, FillsEveryPlaceholderOfEveryTest) {
    for (size_t i = 0; i <= static_cast<size_t>(Trace::lastTest); ++i) {
        for (const bool outcome : {false, true}) {
            const Decision decision = Of(static_cast<Asked>(i), outcome, 7, 11);
            const TestText& text = TextOf(decision.test);
            EXPECT_EQ(text.test, decision.test);
            for (const char* const words : {text.yes, text.no}) {
                EXPECT_THAT(Fill(words, decision, scene_, "why"), Not(HasSubstr("{"))) << i;
            }
        }
    }
}

TEST_F(ReasonWriterTest, MarksAnOutcomeAgainstAnAlarmAsNo) {
    EXPECT_EQ(Written({Of(Asked::waitsOnPipe, true, 5)}), "ok it waits for input from pipe 5");
    EXPECT_EQ(Written({Of(Asked::isSshDaemon, false)}), "ok its program is not the ssh daemon");
    EXPECT_EQ(Written({Of(Asked::isSshDaemon, true)}), "no its program is the ssh daemon, or cannot be read");
    EXPECT_EQ(Written({Of(Asked::isRepeated, false)}), "");
    EXPECT_THAT(Written({Of(Asked::isRepeated, true)}), HasSubstr("note the alarm is already raised above"));
}

TEST_F(ReasonWriterTest, GivesTheLastFailedTestOfASocketAsTheReason) {
    EXPECT_EQ(Written({Of(Asked::socketIsListed, false, 7), Of(Asked::socketIsListed, true, 7),
                       Of(Asked::socketHasPeer, false, 7), Of(Asked::hasConnection, false, 7)}),
              "no socket 7 (tcp a:1 - b:2) has no peer");
    EXPECT_EQ(Written({Of(Asked::socketIsListed, false, 9), Of(Asked::hasConnection, false, 9)}),
              "no socket 9 is in none of the socket tables that the agent reads");
}

TEST_F(ReasonWriterTest, ShowsTheLimitsOfTheDecision) {
    Decision port = Of(Asked::socketIsSshServers, true, 7);
    port.limit = 2222;
    EXPECT_THAT(Written({port, Of(Asked::hasConnection, false, 7)}), HasSubstr("has local port 2222, the port of"));
    Decision descriptors = Of(Asked::parentHasPlausibleDescriptors, true, 0, 11);
    descriptors.count = 8;
    descriptors.limit = 9;
    EXPECT_EQ(Written({descriptors}), "ok its parent cat (11) has 8 descriptors, at most 9 are allowed");
}

TEST_F(ReasonWriterTest, NotesTheAgeOfASocketAfterTheTestThatAcceptsIt) {
    Decision fresh = Of(Asked::socketIsNew, true, 7);
    fresh.limit = 42;
    EXPECT_THAT(
        Written({fresh, Of(Asked::hasConnection, true, 7)}),
        HasSubstr("counts as a connection; note a running agent accepts the socket only within 42 s after it has first "
                  "seen it"));
    EXPECT_THAT(Written({fresh, Of(Asked::hasConnection, false, 7)}), Not(HasSubstr("note")));
}

TEST_F(ReasonWriterTest, GivesTheFailedTestsOfThePipesWritersAsTheReason) {
    EXPECT_EQ(Written({Of(Asked::isFedByRelay, false, 5)}), "no no other process in this pass writes pipe 5");
    EXPECT_EQ(
        Written({Of(Asked::relayReadsSocket, false, 7, 11), Of(Asked::relayWritesPipe, false, 7, 12),
                 Of(Asked::isFedByRelay, false, 5)}),
        "no cat (11) writes pipe 5, but reads socket 7 (tcp a:1 - b:2) on a descriptor other than 0; nc (12) writes "
        "pipe 5, but writes the pipe on a descriptor other than 1");
    EXPECT_EQ(Written({Of(Asked::socketHasPeer, false, 7), Of(Asked::relayHasConnection, false, 7, 11),
                       Of(Asked::isFedByRelay, false, 5)}),
              "no cat (11) writes pipe 5, but its socket 7 (tcp a:1 - b:2) has no peer");
}

TEST_F(ReasonWriterTest, OmitsOtherWritersIfARelayFeedsThePipe) {
    EXPECT_EQ(Written({Of(Asked::relayReadsSocket, false, 7, 11), Of(Asked::relayReadsSocket, true, 7, 12),
                       Of(Asked::relayHasConnection, true, 7, 12), Of(Asked::isFedByRelay, true, 5)}),
              "ok a relay, nc (12), reads socket 7 (tcp a:1 - b:2) on its descriptor 0 and writes the pipe on its "
              "descriptor 1");
}

TEST_F(ReasonWriterTest, NamesOnlyTheFirstOfManyWriters) {
    std::vector<Decision> decisions(6, Of(Asked::feederIsDescendant, false, 0, 11));
    decisions.push_back(Of(Asked::isFedByDescendant, false, 5));
    const std::string written = Written(decisions);
    EXPECT_THAT(written, HasSubstr("; and more"));
    EXPECT_LT(written.size(), 300U);
}

TEST(DecisionRecorder, RecordsOnlyDuringTheWork) {
    std::vector<Decision> seen;
    const auto record = [&seen](const Decision& decision) { seen.push_back(decision); };
    EXPECT_TRUE(Trace::Result(Asked::isShell, 1, true));
    RecordDecisions(
        [] {
            Trace::Limit(Asked::socketIsNew, 100);
            EXPECT_FALSE(Trace::Result(Asked::socketIsNew, 2, false, {.inode = 3}));
            EXPECT_TRUE(Trace::Result(Asked::isShell, 4, true, {.other = 5, .count = 6, .limit = 7, .text = "t"}));
        },
        record);
    EXPECT_FALSE(Trace::Result(Asked::isShell, 1, false));
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].limit, 100);
    EXPECT_EQ(seen[0].inode, 3U);
    EXPECT_FALSE(seen[0].outcome);
    EXPECT_EQ(seen[1].pid, 4);
    EXPECT_EQ(seen[1].other, 5);
    EXPECT_EQ(seen[1].count, 6);
    EXPECT_EQ(seen[1].limit, 7);
    EXPECT_EQ(seen[1].text, "t");
}

}  // namespace
}  // namespace Host
