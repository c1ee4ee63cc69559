#include <limits.h>

#include <functional>

#include "host/watch/known_file.h"
#include "tests/unit/watch/monitor_fixture.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using TestSupport::Listener;

using Monitor = TestSupport::MonitorFixture;

TEST_F(Monitor, ReportsAttributesAgainstTheLastReport) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    chmod(In("shell").c_str(), 0700);
    EXPECT_THAT(Reported(), ElementsAre("1 in/shell attribute oaccess=33261 access=33216"));
    Append(In("shell"), "x");
    EXPECT_THAT(Reported(), ElementsAre("2 in/shell"));
    chmod(In("shell").c_str(), 0755);
    EXPECT_THAT(Reported(), ElementsAre("1 in/shell attribute oaccess=33216 access=33261"));
}

TEST_F(Monitor, EachWriterCausesAReport) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    for (int i = 0; i < 5; ++i) {
        Append(In("shell"), "x");
        EXPECT_THAT(Reported(), ElementsAre("2 in/shell"));
    }
}

TEST_F(Monitor, AWriteAfterARestIsReportedAgain) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    std::ofstream writer(In("shell"), std::ios::app);
    for (int i = 0; i < 3; ++i) {
        writer << "x" << std::flush;
        writer << "y" << std::flush;
        EXPECT_THAT(Reported(), ElementsAre("2 in/shell"));
        MovedClock::Advance(Host::WriteBurst::rest);
        EXPECT_THAT(Reported(), IsEmpty());
    }
}

TEST_F(Monitor, AReplacedFileIsWatchedAtOnce) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    for (const bool isInside : {true, false}) {
        const std::string from = isInside ? In("new") : Out("new");
        Make(from, "x");
        Move(from, In("shell"));
        Append(In("shell"), "x");
        EXPECT_THAT(Reported(), ElementsAre(isInside ? "4 in/new -> in/shell" : "6 in/shell", "2 in/shell"));
        chmod(In("shell").c_str(), 0700);
        EXPECT_THAT(Reported(), ElementsAre("1 in/shell attribute oaccess=33261 access=33216"));
    }
}

TEST_F(Monitor, AFileLinkedIntoAnothersPlaceIsReported) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    Make(Out("evil"), "x");
    for (const bool isSymbolic : {false, true}) {
        Remove(In("shell"));
        if (isSymbolic) {
            ASSERT_EQ(symlink(Out("evil").c_str(), In("shell").c_str()), 0);
        } else {
            Link(Out("evil"), In("shell"));
        }
        EXPECT_THAT(Reported(), ElementsAre("3 in/shell", "2 in/shell")) << isSymbolic;
    }
    Append(Out("evil"), "x");
    EXPECT_THAT(Reported(), ElementsAre("2 in/shell"));
}

TEST_F(Monitor, RenamesAcrossWatchedDirectoriesArePaired) {
    ASSERT_TRUE(listener_.Watch(In("")));
    ASSERT_TRUE(listener_.Watch(dir_.Path("out")));
    ASSERT_TRUE(listener_.Watch(In("shell")));
    Move(In("shell"), Out("x"));
    EXPECT_THAT(Reported(), ElementsAre("4 in/shell -> out/x"));
    Move(Out("x"), In("shell"));
    EXPECT_THAT(Reported(), ElementsAre("4 out/x -> in/shell"));
}

TEST_F(Monitor, ManyRenamesKeepTheirPairs) {
    ASSERT_TRUE(listener_.Watch(In("")));
    std::vector<std::string> expected;
    std::string last = "shell";
    for (int i = 0; i < 3000; ++i) {
        const std::string next = "n" + std::to_string(i);
        Move(In(last), In(next));
        expected.push_back("4 in/" + last + " -> in/" + next);
        last = next;
    }
    EXPECT_THAT(Reported(), ElementsAreArray(expected));
}

TEST_F(Monitor, EachListenerGetsAReport) {
    Listener other;
    ASSERT_TRUE(listener_.Watch(In("shell")));
    ASSERT_TRUE(other.Watch(In("")));
    Append(In("shell"), "x");
    EXPECT_THAT(Reported(), ElementsAre("2 in/shell"));
    EXPECT_THAT(Reported(other), ElementsAre("2 in/shell"));
}

TEST_F(Monitor, ReportsOnlyTheRequestedOperations) {
    using Switch = bool TestSupport::FileWatchRule::*;
    using Rule = TestSupport::FileWatchRule;
    const std::vector<std::pair<Switch, std::vector<std::string>>> cases = {
        {&Rule::onAttribute, {"1 in/shell attribute oaccess=33261 access=33216"}},
        {&Rule::onModify, {"2 in/shell"}},
        {&Rule::onDelete, {"3 in/shell"}},
        {&Rule::onMove, {"4 in/shell -> in/x", "4 in/x -> in/shell"}},
        {&Rule::onMovedFrom, {"5 in/shell -> in/x"}},
        {&Rule::onMovedTo, {"6 in/shell -> in/x"}},
    };
    for (const auto& [wanted, expected] : cases) {
        Make(In("shell"), "content");
        Listener listener;
        Rule rule = listener.Rule(In("shell"));
        rule.onAttribute = rule.onModify = rule.onDelete = rule.onMove = rule.onMovedFrom = rule.onMovedTo = false;
        rule.*wanted = true;
        ASSERT_TRUE(listener.Watch(rule));
        std::vector<std::string> reported;
        const std::vector<std::function<void()>> changes = {
            [&] { Append(In("shell"), "x"); }, [&] { chmod(In("shell").c_str(), 0700); },
            [&] { Move(In("shell"), In("x")); }, [&] { Move(In("x"), In("shell")); }, [&] { Remove(In("shell")); }};
        for (const auto& change : changes) {
            change();
            const std::vector<std::string> more = Reported(listener);
            reported.insert(reported.end(), more.begin(), more.end());
        }
        EXPECT_THAT(reported, ElementsAreArray(expected));
    }
}

TEST_F(Monitor, ARuleThatDoesNotFollowEndsWithItsFile) {
    TestSupport::FileWatchRule rule = listener_.Rule(In("shell"));
    rule.onReplace = false;
    ASSERT_TRUE(listener_.Watch(rule));
    Make(In("new"), "x");
    Move(In("new"), In("shell"));
    EXPECT_THAT(Reported(), ElementsAre("4 in/new -> in/shell"));
    Append(In("shell"), "x");
    Remove(In("shell"));
    EXPECT_THAT(Reported(), IsEmpty());
}

TEST_F(Monitor, WritesToADeletedFileAreNotReportedForItsSuccessor) {
    ASSERT_TRUE(listener_.Watch(In("")));
    ASSERT_TRUE(listener_.Watch(In("shell")));
    std::ofstream old(In("shell"), std::ios::app);
    Make(In("new"), "x");
    Reported();
    Move(In("new"), In("shell"));
    old << "x" << std::flush;
    old.close();
    EXPECT_THAT(Reported(), ElementsAre("4 in/new -> in/shell"));
}

TEST_F(Monitor, AChangeIsReportedWithinAFifthOfASecond) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    mode_t mode = 0755;
    const std::vector<std::function<void()>> changes = {
        [&] { Append(In("shell"), "x"); },        [&] { chmod(In("shell").c_str(), mode ^= 0100); },
        [&] { Link(In("shell"), Out("l")); },     [&] { Remove(Out("l")); },
        [&] { Move(In("shell"), Out("shell")); }, [&] { Move(Out("shell"), In("shell")); }};
    for (size_t i = 0; i < changes.size(); ++i) {
        const auto begin = Host::Clock::Now();
        changes[i]();
        ASSERT_TRUE(listener_.AwaitCount(1));
        EXPECT_LT(Host::Clock::Now() - begin, std::chrono::milliseconds(200)) << i;
        Reported();
    }
}

TEST_F(Monitor, ReportsHostileNamesUnchanged) {
    for (const std::string& name : {std::string("\xff\xfe"), std::string("a\nb\t"), std::string(255, 'n'),
                                    std::string("%s%n"), std::string(" "), std::string("\\ \"'")}) {
        const std::string path = In(name);
        Make(path, "x");
        Listener listener;
        ASSERT_TRUE(listener.Watch(path));
        Append(path, "x");
        EXPECT_THAT(Reported(listener), ElementsAre("2 in/" + name));
        Move(path, In("other"));
        EXPECT_THAT(Reported(listener), ElementsAre("4 in/" + name + " -> in/other"));
    }
}

TEST_F(Monitor, RejectsInvalidPaths) {
    TestSupport::FileWatchRule rule = listener_.Rule(In("shell"));
    for (const std::string& path : {std::string("shell"), std::string("./in"), In("shell") + std::string("\0x", 2),
                                    In(std::string(256, 'n')), "/" + std::string(PATH_MAX, '/')}) {
        rule.path = path;
        EXPECT_EQ(AddMonitor(rule, TestSupport::MONITOR_FILE), 0) << path;
    }
    rule = listener_.Rule(In("shell"));
    EXPECT_EQ(AddMonitor(rule, static_cast<TavUtils::Monitor::MonitorType>(2)), 0);
    rule.callback.reset();
    EXPECT_EQ(AddMonitor(rule, TestSupport::MONITOR_FILE), 0);
    rule.callback = std::make_shared<TestSupport::FileWatchCallback>();
    EXPECT_EQ(AddMonitor(rule, TestSupport::MONITOR_FILE), 0);
}

}  // namespace
