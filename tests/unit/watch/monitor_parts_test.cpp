#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/watch/file_state.h"
#include "host/watch/inotify.h"
#include "host/watch/known_file.h"
#include "host/watch/path_walk.h"
#include "host/watch/rename_pairs.h"
#include "host/watch/watch_table.h"
#include "tests/support/temporary_directory.h"

namespace {

using namespace Host;
using std::chrono::milliseconds;

constexpr Clock::Time begin{std::chrono::hours(1)};

std::string EventBytes(int watch, const std::string& name, uint32_t length) {
    inotify_event header{};
    header.wd = watch;
    header.mask = IN_CREATE;
    header.cookie = 7;
    header.len = length;
    std::string bytes(sizeof(header), '\0');
    std::memcpy(bytes.data(), &header, sizeof(header));
    bytes += name;
    bytes.resize(std::max(bytes.size(), sizeof(header) + length));
    return bytes;
}

TEST(ParseInotifyEvents, ReadsEachRecord) {
    const std::string bytes =
        EventBytes(1, "a\xff", 16) + EventBytes(2, "", 0) + EventBytes(3, std::string(16, 'x'), 16);
    std::vector<InotifyEvent> events;
    ParseInotifyEvents(bytes.data(), bytes.size(), events);
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].watch, 1);
    EXPECT_EQ(events[0].mask, static_cast<uint32_t>(IN_CREATE));
    EXPECT_EQ(events[0].cookie, 7U);
    EXPECT_EQ(events[0].name, "a\xff");
    EXPECT_EQ(events[1].name, "");
    EXPECT_EQ(events[2].name, std::string(16, 'x'));
}

TEST(ParseInotifyEvents, StopsAtACutRecord) {
    const std::string bytes = EventBytes(1, "a", 16) + EventBytes(2, "b", 16);
    for (size_t size = 0; size < bytes.size(); ++size) {
        const std::string cut = bytes.substr(0, size);
        std::vector<InotifyEvent> events;
        ParseInotifyEvents(cut.data(), cut.size(), events);
        EXPECT_EQ(events.size(), size < bytes.size() / 2 ? 0U : 1U) << size;
    }
}

TEST(AttributeDetail, ListsOnlyDifferences) {
    FileState old;
    old.mode = 0100755;
    old.user = 1;
    old.group = 2;
    old.links = 3;
    EXPECT_EQ(AttributeDetail(old, old), "");
    FileState now = old;
    now.size = 5;
    now.changedNs = 6;
    EXPECT_EQ(AttributeDetail(old, now), "");
    now.group = 4294967295U;
    EXPECT_EQ(AttributeDetail(old, now), "attribute ogid=2 cgid=4294967295");
    now.mode = 0104711;
    now.user = 0;
    now.links = 4;
    EXPECT_EQ(AttributeDetail(old, now),
              "attribute oaccess=33261 access=35273 ouid=1 cuid=0 ogid=2 cgid=4294967295 olink=3 link=4");
    old = now;
    old.mode = now.mode = S_IFDIR | 0755;
    now.links = 9;
    EXPECT_EQ(AttributeDetail(old, now), "");
}

// An event that is handled at once.
Moment At(int ms) {
    return {begin + milliseconds(ms), begin + milliseconds(ms)};
}

TEST(WriteBurst, BeginsOnceUntilTheWriterRestsOrCloses) {
    WriteBurst burst;
    EXPECT_TRUE(burst.Begins(At(0)));
    EXPECT_FALSE(burst.Begins(At(90)));
    EXPECT_FALSE(burst.Begins(At(180)));
    EXPECT_TRUE(burst.Begins(At(280)));
    burst.End();
    EXPECT_TRUE(burst.Begins(At(281)));
}

TEST(WriteBurst, TimeInTheQueueIsNotARestOfTheWriter) {
    WriteBurst burst;
    EXPECT_TRUE(burst.Begins(At(0)));
    EXPECT_FALSE(burst.Begins({begin + milliseconds(900), begin + milliseconds(99)}));
    EXPECT_FALSE(burst.Begins({begin + milliseconds(1000), begin + milliseconds(999)}));
    EXPECT_TRUE(burst.Begins({begin + milliseconds(1200), begin + milliseconds(1100)}));
}

TEST(WriteBurst, AWriterThatNeverRestsIsReportedAgain) {
    WriteBurst burst;
    int reported = 0;
    for (int ms = 0; ms < 6001; ms += 50) {
        reported += burst.Begins(At(ms)) ? 1 : 0;
    }
    EXPECT_EQ(reported, 4);
}

TEST(Observe, ALowerLinkCountWaits) {
    KnownFile known;
    known.state.links = 2;
    FileState now = known.state;
    now.links = 1;
    EXPECT_EQ(Observe(known, now, Cause::written, At(0)).attributes, "");
    EXPECT_EQ(known.linksDue, begin + linksPatience);
    now.mode = 0755;
    EXPECT_EQ(Observe(known, now, Cause::written, At(5)).attributes, "attribute oaccess=0 access=493");
    EXPECT_EQ(known.linksDue, begin + linksPatience);
    EXPECT_EQ(Observe(known, now, Cause::linksDue, At(30)).attributes, "attribute olink=2 link=1");
    EXPECT_FALSE(known.linksDue);
    now.links = 3;
    EXPECT_EQ(Observe(known, now, Cause::written, At(0)).attributes, "attribute olink=1 link=3");
}

TEST(Observe, IgnoresAttributesOfAFileWithoutAName) {
    KnownFile known;
    known.state.links = 1;
    FileState now = known.state;
    now.links = 0;
    now.mode = 0755;
    EXPECT_EQ(Observe(known, now, Cause::written, At(0)).attributes, "");
    EXPECT_EQ(known.state.links, 1U);
}

TEST(Observe, AWriteIsReportedOnceUntilTheWriterCloses) {
    KnownFile known;
    known.state.links = 1;
    FileState now = known.state;
    now.size = 1;
    EXPECT_FALSE(Observe(known, now, Cause::written, At(0)).isModified);
    now.size = 2;
    EXPECT_TRUE(Observe(known, now, Cause::closed, At(1)).isModified);
    now.size = 3;
    EXPECT_FALSE(Observe(known, now, Cause::closed, At(2)).isModified) << "of the same burst";
    EXPECT_FALSE(Observe(known, now, Cause::closed, At(3)).isModified) << "nothing was written";
    now.size = 4;
    EXPECT_TRUE(Observe(known, now, Cause::closed, At(4)).isModified);
}

TEST(QuietTime, IsLookedForUntilTheLastWriterHasRested) {
    QuietTime quiet;
    EXPECT_FALSE(quiet.Due());
    quiet.Disturb(begin);
    quiet.Disturb(begin + milliseconds(10));
    EXPECT_EQ(quiet.Due(), begin + milliseconds(10) + WriteBurst::rest);
    quiet.Note(begin + milliseconds(109));
    EXPECT_EQ(quiet.At(begin + milliseconds(120)).quiet, begin + milliseconds(109));
    EXPECT_TRUE(quiet.Due());
    quiet.Note(begin + milliseconds(110));
    EXPECT_FALSE(quiet.Due());
}

ChangeSide SideNamed(const std::string& name) {
    ChangeSide side;
    side.plainPath = name;
    return side;
}

TEST(RenamePairs, AreFoundByTheirCookie) {
    RenamePairs pairs;
    pairs.Keep(1, SideNamed("a"), begin);
    pairs.Keep(2, SideNamed("b"), begin);
    EXPECT_EQ(pairs.Take(2)->plainPath, "b");
    EXPECT_FALSE(pairs.Take(2));
    EXPECT_EQ(pairs.Take(1)->plainPath, "a");
    EXPECT_FALSE(pairs.Due());
}

TEST(RenamePairs, AHalfIsOverdueOnceItsOtherHalfMustHaveBeenRead) {
    RenamePairs pairs;
    pairs.BeginBatch();
    pairs.Keep(1, SideNamed("a"), begin);
    const auto late = begin + RenamePairs::patience;
    EXPECT_EQ(pairs.Due(), late);
    EXPECT_TRUE(pairs.TakeOverdue(late - milliseconds(1), true).empty());
    EXPECT_TRUE(pairs.TakeOverdue(late, false).empty());
    pairs.BeginBatch();
    EXPECT_EQ(pairs.TakeOverdue(late, false).size(), 1U);
    pairs.Keep(2, SideNamed("b"), begin);
    EXPECT_EQ(pairs.TakeOverdue(late, true).size(), 1U);
}

TEST(RenamePairs, ReturnsTheOldestHalfIfFull) {
    RenamePairs pairs;
    for (uint32_t i = 0; i < RenamePairs::capacity; ++i) {
        EXPECT_FALSE(pairs.Keep(i, SideNamed(std::to_string(i)), begin));
    }
    EXPECT_EQ(pairs.Keep(9999, SideNamed("new"), begin)->plainPath, "0");
    EXPECT_FALSE(pairs.Take(0));
}

std::vector<std::string> Names(const std::vector<PathStep>& steps) {
    std::vector<std::string> names;
    for (const PathStep& step : steps) {
        const char* const kinds[] = {"/", "@", "", "?"};
        names.push_back(step.name + kinds[static_cast<int>(step.kind)] + (step.isLastName ? "!" : ""));
    }
    return names;
}

TEST(WalkPath, GoesThroughLinks) {
    const TemporaryDirectory dir;
    dir.Write("usr/bin/dash", "x");
    ASSERT_EQ(symlink("usr/bin", dir.Path("bin").c_str()), 0);
    ASSERT_EQ(symlink("dash", dir.Path("usr/bin/sh").c_str()), 0);
    ASSERT_EQ(symlink("loop", dir.Path("loop").c_str()), 0);
    ASSERT_EQ(symlink("/", dir.Path("root").c_str()), 0);
    const size_t prefix = WalkPath(dir.Path()).size();
    struct Case {
        const char* path;
        std::vector<std::string> names;
        const char* end;
    };
    for (const Case& c : std::vector<Case>{
             {"usr/bin/dash", {"usr/", "bin/", "dash!"}, "/usr/bin/dash"},
             {"bin//./sh", {"bin@", "usr/", "bin/", "sh@!", "dash!"}, "/usr/bin/dash"},
             {"bin", {"bin@!", "usr/", "bin/!"}, "/usr/bin"},
             {"usr/../usr/x", {"usr/", "../", "usr/", "x?!"}, "/usr/x"},
             {"no/way/there", {"no?"}, "/no"},
             {"usr/bin/dash/x", {"usr/", "bin/", "dash?"}, "/usr/bin/dash"},
         }) {
        std::vector<PathStep> steps = WalkPath(dir.Path(c.path));
        EXPECT_EQ(steps.back().path, dir.Path() + c.end) << c.path;
        steps.erase(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(prefix));
        EXPECT_EQ(Names(steps), c.names) << c.path;
    }
    EXPECT_EQ(WalkPath(dir.Path("root")).back().path, "/");
    EXPECT_EQ(WalkPath(dir.Path("root")).back().kind, PathStep::Kind::directory);
    EXPECT_EQ(WalkPath(dir.Path("loop")).back().kind, PathStep::Kind::missing);
    EXPECT_EQ(Names(WalkPath("")), std::vector<std::string>{"/!"});
}

TEST(ListDirectory, StopsAtItsLimit) {
    const TemporaryDirectory dir;
    for (const char* name : {"a", "b", "c"}) {
        dir.Write(name, name);
    }
    ASSERT_EQ(symlink("nowhere", dir.Path("link").c_str()), 0);
    std::map<std::string, FileState> entries;
    EXPECT_EQ(ListDirectory(dir.Path(), 4, entries), 0);
    EXPECT_EQ(entries.size(), 4U);
    EXPECT_TRUE(S_ISLNK(entries["link"].mode));
    entries.clear();
    EXPECT_EQ(ListDirectory(dir.Path(), 3, entries), E2BIG);
    EXPECT_EQ(entries.size(), 3U);
    EXPECT_EQ(ListDirectory(dir.Path("missing"), 3, entries), ENOENT);
}

TEST(WatchTable, DropsEventsThatNoHolderNeeds) {
    const TemporaryDirectory dir;
    Inotify inotify;
    ASSERT_EQ(inotify.Open(), 0);
    WatchTable watches(inotify);
    const Descriptor directory(open(dir.Path().c_str(), O_PATH | O_CLOEXEC));
    const WatchHold wide = watches.Hold(directory.Get(), dir.Path(), IN_CREATE | IN_DELETE_SELF);
    const WatchHold narrow = watches.Hold(directory.Get(), dir.Path(), IN_DELETE | IN_DELETE_SELF);
    ASSERT_GE(wide.watch, 0);
    EXPECT_EQ(wide.watch, narrow.watch);
    EXPECT_TRUE(watches.IsBehind(directory.Get(), wide.watch));
    const auto masks = [&] {
        std::filesystem::remove(dir.Write("x", ""));
        std::vector<InotifyEvent> events;
        EXPECT_EQ(inotify.Read(events), 0);
        std::vector<uint32_t> seen;
        for (const InotifyEvent& event : events) {
            seen.push_back(event.mask);
        }
        return seen;
    };
    EXPECT_THAT(masks(), testing::ElementsAre(IN_CREATE, IN_DELETE));
    watches.Release(wide);
    EXPECT_THAT(masks(), testing::ElementsAre(IN_DELETE));
    watches.Release(narrow);
    EXPECT_THAT(masks(), testing::ElementsAre(IN_IGNORED));
    EXPECT_FALSE(watches.Has(wide.watch));
}

}  // namespace
