// Each kind of change, seen by rules on the file, on its directory and on both.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/xattr.h>

#include <functional>

#include "tests/unit/watch/monitor_fixture.h"

namespace {

using testing::ElementsAreArray;
using TestSupport::Listener;

struct Change {
    const char* name;
    std::function<void()> before;
    std::function<void()> make;
    std::vector<std::string> reported;
};

class MonitorChanges : public TestSupport::MonitorFixture {
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
    void ExpectEachReportedOnce(const std::vector<std::string>& watched, const std::vector<Change>& changes) {
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
            EXPECT_THAT(Reported(listener), ElementsAreArray(change.reported));
        }
    }
};

TEST_F(MonitorChanges, AreReportedToARuleOnTheFile) {
    ExpectEachReportedOnce({In("shell")}, Changes());
}

TEST_F(MonitorChanges, AreReportedToARuleOnTheDirectory) {
    ExpectEachReportedOnce({In("")}, Changes());
}

TEST_F(MonitorChanges, AreReportedOnceToRulesOnBoth) {
    ExpectEachReportedOnce({In(""), In("shell")}, Changes());
    ExpectEachReportedOnce({In("shell"), In(""), In("shell")}, Changes());
}

TEST_F(MonitorChanges, LinkCountsAreReportedToTheFile) {
    const std::string shell = In("shell");
    ExpectEachReportedOnce(
        {In(""), shell},
        {{"link made", [] {}, [=, this] { Link(shell, Out("l")); }, {"1 in/shell attribute olink=1 link=2"}},
         {"link removed",
          [=, this] { Link(shell, Out("l")); },
          [=, this] { Remove(Out("l")); },
          {"1 in/shell attribute olink=2 link=1"}}});
}

}  // namespace
