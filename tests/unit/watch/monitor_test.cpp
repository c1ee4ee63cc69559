#include "agent/monitor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/unit/watch/monitor_support.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using TestSupport::Fence;
using TestSupport::Listener;

class Monitor : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "owners are changed and file systems mounted: root";
        }
        std::filesystem::create_directory(In(""));
        std::filesystem::create_directory(dir_.Path("out"));
        Make(In("shell"), "content");
    }

    // A path in the watched directory, and one beside it.
    std::string In(const std::string& name) const { return dir_.Path("in") + (name.empty() ? "" : "/" + name); }
    std::string Out(const std::string& name) const { return dir_.Path("out/" + name); }

    static void Make(const std::string& path, const std::string& text) {
        WriteFile(path, text);
        chmod(path.c_str(), 0755);
    }

    static void Append(const std::string& path, const std::string& text) {
        std::ofstream(path, std::ios::binary | std::ios::app) << text;
    }

    static void Move(const std::string& from, const std::string& to) {
        ASSERT_EQ(rename(from.c_str(), to.c_str()), 0) << from << " " << to;
    }

    static void Link(const std::string& from, const std::string& to) {
        ASSERT_EQ(link(from.c_str(), to.c_str()), 0) << from << " " << to;
    }

    static void Remove(const std::string& path) { ASSERT_EQ(unlink(path.c_str()), 0) << path; }

    // All that was told since the last call, without the path of the test's own directory.
    std::vector<std::string> Told() { return Told(listener_); }
    std::vector<std::string> Told(Listener& listener) {
        EXPECT_TRUE(fence_.Pass());
        std::vector<std::string> told = listener.Take();
        for (std::string& line : told) {
            for (size_t at = line.find(dir_.Path()); at != std::string::npos; at = line.find(dir_.Path())) {
                line.erase(at, dir_.Path().size() + 1);
            }
        }
        return told;
    }

    TemporaryDirectory dir_;
    Fence fence_;
    Listener listener_;
};

struct Change {
    const char* name;
    std::function<void()> before;
    std::function<void()> make;
    std::vector<std::string> told;
};

class MonitorChanges : public Monitor {
protected:
    std::vector<Change> Changes() const {
        const std::string shell = In("shell");
        const std::function<void()> nothing = [] {};
        return {
            {"write", nothing, [=] { WriteFile(shell, "other"); }, {"2 in/shell"}},
            {"write much", nothing, [=] { WriteFile(shell, std::string(4 << 20, 'x')); }, {"2 in/shell"}},
            {"append", nothing, [=] { Append(shell, "more"); }, {"2 in/shell"}},
            {"truncate", nothing, [=] { EXPECT_EQ(truncate(shell.c_str(), 2), 0); }, {"2 in/shell"}},
            {"chmod",
             nothing,
             [=] { chmod(shell.c_str(), 04711); },
             {"1 in/shell attribute oaccess=33261 access=35273"}},
            {"chown",
             nothing,
             [=] { EXPECT_EQ(chown(shell.c_str(), 7, -1U), 0); },
             {"1 in/shell attribute ouid=0 cuid=7"}},
            {"chgrp",
             nothing,
             [=] { EXPECT_EQ(chown(shell.c_str(), -1U, 8), 0); },
             {"1 in/shell attribute ogid=0 cgid=8"}},
            {"chown of both",
             nothing,
             [=] { EXPECT_EQ(chown(shell.c_str(), 7, 8), 0); },
             {"1 in/shell attribute ouid=0 cuid=7 ogid=0 cgid=8"}},
            {"delete", nothing, [=] { Remove(shell); }, {"3 in/shell"}},
            {"delete one of two links", [=, this] { Link(shell, Out("l")); }, [=] { Remove(shell); }, {"3 in/shell"}},
            {"move away", nothing, [=, this] { Move(shell, Out("x")); }, {"5 in/shell"}},
            {"move within", nothing, [=, this] { Move(shell, In("x")); }, {"4 in/shell -> in/x"}},
            {"move back", [=, this] { Move(shell, Out("x")); }, [=, this] { Move(Out("x"), shell); }, {"6 in/shell"}},
            {"move over", [=, this] { Make(Out("x"), "x"); }, [=, this] { Move(Out("x"), shell); }, {"6 in/shell"}},
            {"replace by rename",
             [=, this] { Make(In("new"), "x"); },
             [=, this] { Move(In("new"), shell); },
             {"4 in/new -> in/shell"}},
            {"replace one of two links by rename",
             [=, this] {
                 Link(shell, Out("l"));
                 Make(In("new"), "x");
             },
             [=, this] { Move(In("new"), shell); },
             {"4 in/new -> in/shell"}},
            {"exchange",
             [=, this] { Make(In("new"), "x"); },
             [=, this] {
                 EXPECT_EQ(renameat2(AT_FDCWD, In("new").c_str(), AT_FDCWD, shell.c_str(), RENAME_EXCHANGE), 0);
             },
             {"4 in/new -> in/shell", "4 in/shell -> in/new"}},
            {"delete and make again",
             nothing,
             [=] {
                 Remove(shell);
                 WriteFile(shell, "other");
             },
             {"3 in/shell", "2 in/shell"}},
            {"write a mapping",
             nothing,
             [=] {
                 const int fd = open(shell.c_str(), O_RDWR | O_CLOEXEC);
                 void* const memory = mmap(nullptr, 1, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
                 ASSERT_NE(memory, MAP_FAILED);
                 *static_cast<char*>(memory) = 'x';
                 munmap(memory, 1);
                 close(fd);
             },
             {"2 in/shell"}},
            {"read", nothing, [=] { FileText(shell); }, {}},
            {"open for writing", nothing, [=] { close(open(shell.c_str(), O_WRONLY | O_CLOEXEC)); }, {}},
            {"touch", nothing, [=] { EXPECT_EQ(utimensat(AT_FDCWD, shell.c_str(), nullptr, 0), 0); }, {}},
            {"chmod to the same", nothing, [=] { chmod(shell.c_str(), 0755); }, {}},
            {"extended attribute", nothing, [=] { setxattr(shell.c_str(), "user.x", "y", 1, 0); }, {}},
        };
    }

    // Makes each change on a fresh shell that is watched by rules on these paths.
    void ExpectEachToldOnce(const std::vector<std::string>& watched, const std::vector<Change>& changes) {
        for (const Change& change : changes) {
            SCOPED_TRACE(change.name);
            for (const std::string& path : {In(""), dir_.Path("out")}) {
                for (const auto& entry : std::filesystem::directory_iterator(path)) {
                    std::filesystem::remove(entry);
                }
            }
            Make(In("shell"), "content");
            change.before();
            Listener listener;
            for (const std::string& path : watched) {
                ASSERT_TRUE(listener.Watch(path));
            }
            change.make();
            EXPECT_THAT(Told(listener), ElementsAreArray(change.told));
        }
    }
};

TEST_F(MonitorChanges, AreToldToARuleOnTheFile) {
    ExpectEachToldOnce({In("shell")}, Changes());
}

TEST_F(MonitorChanges, AreToldToARuleOnTheDirectory) {
    ExpectEachToldOnce({In("")}, Changes());
}

TEST_F(MonitorChanges, AreToldOnceToRulesOnBoth) {
    ExpectEachToldOnce({In(""), In("shell")}, Changes());
    ExpectEachToldOnce({In("shell"), In(""), In("shell")}, Changes());
}

TEST_F(MonitorChanges, OfTheLinkCountAreToldToTheFile) {
    const std::string shell = In("shell");
    ExpectEachToldOnce(
        {In(""), shell},
        {{"link made", [] {}, [=, this] { Link(shell, Out("l")); }, {"1 in/shell attribute olink=1 link=2"}},
         {"link removed",
          [=, this] { Link(shell, Out("l")); },
          [=, this] { Remove(Out("l")); },
          {"1 in/shell attribute olink=2 link=1"}}});
}

TEST_F(Monitor, ToldValuesAreThoseSinceTheLastReport) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    chmod(In("shell").c_str(), 0700);
    EXPECT_THAT(Told(), ElementsAre("1 in/shell attribute oaccess=33261 access=33216"));
    Append(In("shell"), "x");
    EXPECT_THAT(Told(), ElementsAre("2 in/shell"));
    chmod(In("shell").c_str(), 0755);
    EXPECT_THAT(Told(), ElementsAre("1 in/shell attribute oaccess=33216 access=33261"));
}

TEST_F(Monitor, EachWriterIsAChange) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    for (int i = 0; i < 5; ++i) {
        Append(In("shell"), "x");
        EXPECT_THAT(Told(), ElementsAre("2 in/shell"));
    }
}

TEST_F(Monitor, AWriterThatRestsMakesAnotherChange) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    std::ofstream writer(In("shell"), std::ios::app);
    for (int i = 0; i < 3; ++i) {
        writer << "x" << std::flush;
        // Takes longer than the rest that ends a change.
        EXPECT_THAT(Told(), ElementsAre("2 in/shell"));
        EXPECT_THAT(Told(), IsEmpty());
    }
}

TEST_F(Monitor, AReplacedFileIsWatchedAtOnce) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    for (const bool isInside : {true, false}) {
        const std::string from = isInside ? In("new") : Out("new");
        Make(from, "x");
        Move(from, In("shell"));
        Append(In("shell"), "x");
        EXPECT_THAT(Told(), ElementsAre(isInside ? "4 in/new -> in/shell" : "6 in/shell", "2 in/shell"));
        chmod(In("shell").c_str(), 0700);
        EXPECT_THAT(Told(), ElementsAre("1 in/shell attribute oaccess=33261 access=33216"));
    }
}

TEST_F(Monitor, AFileThatReplacesByALinkIsTold) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    Make(Out("evil"), "x");
    for (const bool isSymbolic : {false, true}) {
        Remove(In("shell"));
        if (isSymbolic) {
            ASSERT_EQ(symlink(Out("evil").c_str(), In("shell").c_str()), 0);
        } else {
            Link(Out("evil"), In("shell"));
        }
        EXPECT_THAT(Told(), ElementsAre("3 in/shell", "2 in/shell")) << isSymbolic;
    }
    Append(Out("evil"), "x");
    EXPECT_THAT(Told(), ElementsAre("2 in/shell"));
}

TEST_F(Monitor, RenamesAcrossWatchedDirectoriesArePaired) {
    ASSERT_TRUE(listener_.Watch(In("")));
    ASSERT_TRUE(listener_.Watch(dir_.Path("out")));
    ASSERT_TRUE(listener_.Watch(In("shell")));
    Move(In("shell"), Out("x"));
    EXPECT_THAT(Told(), ElementsAre("4 in/shell -> out/x"));
    Move(Out("x"), In("shell"));
    EXPECT_THAT(Told(), ElementsAre("4 out/x -> in/shell"));
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
    EXPECT_THAT(Told(), ElementsAreArray(expected));
}

TEST_F(Monitor, EachListenerIsTold) {
    Listener other;
    ASSERT_TRUE(listener_.Watch(In("shell")));
    ASSERT_TRUE(other.Watch(In("")));
    Append(In("shell"), "x");
    EXPECT_THAT(Told(), ElementsAre("2 in/shell"));
    EXPECT_THAT(Told(other), ElementsAre("2 in/shell"));
}

TEST_F(Monitor, OnlyWhatARuleAsksForIsTold) {
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
        std::vector<std::string> told;
        const std::vector<std::function<void()>> changes = {
            [&] { Append(In("shell"), "x"); }, [&] { chmod(In("shell").c_str(), 0700); },
            [&] { Move(In("shell"), In("x")); }, [&] { Move(In("x"), In("shell")); }, [&] { Remove(In("shell")); }};
        for (const auto& change : changes) {
            change();
            const std::vector<std::string> more = Told(listener);
            told.insert(told.end(), more.begin(), more.end());
        }
        EXPECT_THAT(told, ElementsAreArray(expected));
    }
}

TEST_F(Monitor, ARuleThatDoesNotFollowEndsWithItsFile) {
    TestSupport::FileWatchRule rule = listener_.Rule(In("shell"));
    rule.onReplace = false;
    ASSERT_TRUE(listener_.Watch(rule));
    Make(In("new"), "x");
    Move(In("new"), In("shell"));
    EXPECT_THAT(Told(), ElementsAre("4 in/new -> in/shell"));
    Append(In("shell"), "x");
    Remove(In("shell"));
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(Monitor, WritesToADeletedFileAreNotThoseOfItsSuccessor) {
    ASSERT_TRUE(listener_.Watch(In("")));
    ASSERT_TRUE(listener_.Watch(In("shell")));
    std::ofstream old(In("shell"), std::ios::app);
    Make(In("new"), "x");
    Told();
    Move(In("new"), In("shell"));
    old << "x" << std::flush;
    old.close();
    EXPECT_THAT(Told(), ElementsAre("4 in/new -> in/shell"));
}

TEST_F(Monitor, AChangeIsToldWithinAFifthOfASecond) {
    ASSERT_TRUE(listener_.Watch(In("shell")));
    mode_t mode = 0755;
    const std::vector<std::function<void()>> changes = {
        [&] { Append(In("shell"), "x"); },        [&] { chmod(In("shell").c_str(), mode ^= 0100); },
        [&] { Link(In("shell"), Out("l")); },     [&] { Remove(Out("l")); },
        [&] { Move(In("shell"), Out("shell")); }, [&] { Move(Out("shell"), In("shell")); }};
    constexpr std::chrono::milliseconds limit(200);
    // A busy machine may hold up either side: of a few rounds, one shows what the monitor itself takes.
    std::chrono::steady_clock::duration slowest = limit;
    for (int round = 0; round < 10 && slowest >= limit; ++round) {
        slowest = {};
        for (const auto& change : changes) {
            const auto begin = std::chrono::steady_clock::now();
            change();
            ASSERT_TRUE(listener_.AwaitCount(1));
            slowest = std::max(slowest, std::chrono::steady_clock::now() - begin);
            Told();
        }
    }
    EXPECT_LT(slowest, limit);
}

TEST_F(Monitor, HostileNamesAreToldAsTheyAre) {
    for (const std::string& name : {std::string("\xff\xfe"), std::string("a\nb\t"), std::string(255, 'n'),
                                    std::string("%s%n"), std::string(" "), std::string("\\ \"'")}) {
        const std::string path = In(name);
        Make(path, "x");
        Listener listener;
        ASSERT_TRUE(listener.Watch(path));
        Append(path, "x");
        EXPECT_THAT(Told(listener), ElementsAre("2 in/" + name));
        Move(path, In("other"));
        EXPECT_THAT(Told(listener), ElementsAre("4 in/" + name + " -> in/other"));
    }
}

TEST_F(Monitor, WhatIsNoPathIsRefused) {
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
