#include "inspect/proc_directory.h"

#include <dirent.h>

#include <filesystem>
#include <memory>

#include "inspect_fixture.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds entryPause{5};
constexpr milliseconds twentiethPause{1};

class ProcDirectory : public InspectTest {
protected:
    // Creates files 0 to count - 1.
    static void Fill(const TemporaryDirectory& folder, int count) {
        for (int i = 0; i < count; ++i) {
            WriteFile(folder.Path(std::to_string(i)), "");
        }
    }

    void Fill(int count) const { Fill(folder, count); }

    static std::vector<std::string> Scan(const TemporaryDirectory& folder, bool limit) {
        std::vector<std::string> names;
        EXPECT_EQ(ScanDir(folder.Path().c_str(), CollectDirEntry, names, limit), 0);
        return names;
    }

    std::vector<std::string> Scan(bool limit) const { return Scan(folder, limit); }

    // In the directory's order.
    static std::vector<std::string> Entries(const TemporaryDirectory& folder) {
        std::vector<std::string> names;
        DIR* directory = opendir(folder.Path().c_str());
        while (const dirent* entry = readdir(directory)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.push_back(name);
            }
        }
        closedir(directory);
        return names;
    }

    std::vector<std::string> Entries() const { return Entries(folder); }

    // The pauses of a full walk over count entries with limit.
    static PauseList WalkOf(size_t count) {
        PauseList pauses;
        for (size_t entry = 1; entry <= count; ++entry) {
            pauses.push_back(entryPause);
            if (entry % 20 == 0) {
                pauses.push_back(twentiethPause);
            }
        }
        return pauses;
    }

    const TemporaryDirectory folder;
};

TEST_F(ProcDirectory, PassesEveryEntryInTheDirectorysOrder) {
    Fill(50);
    EXPECT_EQ(Scan(true), Entries());
    EXPECT_EQ(Scan(false), Entries());
}

TEST_F(ProcDirectory, SkipsOnlyTheDotEntries) {
    for (const char* name : {"...", ".a", "..b", "a.", " ", "\n", "\xff\x01", "%s%n"}) {
        WriteFile(folder.Path(name), "");
    }
    WriteFile(folder.Path(std::string(255, 'x')), "");
    EXPECT_EQ(Scan(true), Entries());
    EXPECT_EQ(Entries().size(), 9U);
}

TEST_F(ProcDirectory, FailsForAFileOrAMissingDirectory) {
    std::vector<std::string> names;
    EXPECT_EQ(ScanDir(nullptr, CollectDirEntry, names, true), -1);
    EXPECT_EQ(ScanDir(folder.Path("missing").c_str(), CollectDirEntry, names, true), -1);
    EXPECT_EQ(ScanDir(folder.Write("file", "").c_str(), CollectDirEntry, names, true), -1);
    EXPECT_EQ(ScanDir("", CollectDirEntry, names, true), -1);
    EXPECT_TRUE(names.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcDirectory, DoesNotSleepIfEmpty) {
    EXPECT_TRUE(Scan(true).empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcDirectory, SleepsFiveMillisecondsPerEntryAndOneMorePerTwentieth) {
    Fill(45);
    Scan(true);
    EXPECT_EQ(TimeRecorder::Pauses(), WalkOf(45));
    EXPECT_EQ(CountOf(TimeRecorder::Pauses(), twentiethPause), 2U);
}

TEST_F(ProcDirectory, SleepsBothPerEntryWithoutLimit) {
    Fill(3);
    Scan(false);
    const PauseList entry = {entryPause, twentiethPause};
    EXPECT_EQ(TimeRecorder::Pauses(), entry + entry + entry);
}

TEST_F(ProcDirectory, EndsIfTheCallbackSaysSo) {
    Fill(40);
    const DirEntryCallback takeTwenty = [](const char*, const char* name, std::vector<std::string>& out) {
        out.emplace_back(name);
        return out.size() < 20 ? 0 : 1;
    };
    std::vector<std::string> names;
    EXPECT_EQ(ScanDir(folder.Path().c_str(), takeTwenty, names, true), 0);
    EXPECT_EQ(names.size(), 20U);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(20, entryPause)) << "no further sleep after the entry that ended it";
}

TEST_F(ProcDirectory, PassesTheDirectoryToTheCallback) {
    Fill(1);
    const DirEntryCallback takePlace = [](const char* dir, const char* name, std::vector<std::string>& out) {
        out.push_back(std::string(dir) + "/" + name);
        return 0;
    };
    std::vector<std::string> places;
    ScanDir(folder.Path().c_str(), takePlace, places, true);
    EXPECT_EQ(places, std::vector<std::string>{folder.Path("0")});
}

TEST_F(ProcDirectory, EndsIfTheModuleStops) {
    Fill(10);
    StopAtPause(3);
    EXPECT_EQ(Scan(true).size(), 2U);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(3, entryPause));
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "thread was stopped by StopModule run.[run=0]");
}

TEST_F(ProcDirectory, CountsUpToTenThousandAndOne) {
    int count = 0;
    EXPECT_TRUE(CheckDirNum(count, "dir", true));
    EXPECT_EQ(count, 1);
    count = 10000;
    EXPECT_TRUE(CheckDirNum(count, "dir", true));
    EXPECT_EQ(count, 10001);
    EXPECT_TRUE(Log().empty());
    EXPECT_FALSE(CheckDirNum(count, "dir", true));
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "Directory files exceed.[maxFileNum=10000 dir_path=dir]");
}

TEST_F(ProcDirectory, DoesNotCountWithoutLimit) {
    int count = 20000;
    EXPECT_TRUE(CheckDirNum(count, "dir", false));
    EXPECT_EQ(count, 20000);
    EXPECT_TRUE(Log().empty());
}

TEST_F(ProcDirectory, EndsIfTheCallbackRefusesAnEntryOrTheModuleStops) {
    dirent entry{};
    entry.d_name[0] = 'x';
    const DirEntryCallback refuse = [](const char*, const char*, std::vector<std::string>&) { return -1; };
    std::vector<std::string> names;
    EXPECT_TRUE(DirEntryCheck(&entry, "dir", CollectDirEntry, names));
    EXPECT_FALSE(DirEntryCheck(&entry, "dir", refuse, names));
    moduleRunning = 0;
    EXPECT_FALSE(DirEntryCheck(&entry, "dir", CollectDirEntry, names));
    EXPECT_EQ(names, std::vector<std::string>{"x"});
}

TEST_F(ProcDirectory, CollectsNames) {
    std::vector<std::string> names{"before"};
    EXPECT_EQ(CollectDirEntry("dir", "name", names), 0);
    EXPECT_EQ(CollectDirEntry(nullptr, "name", names), -1);
    EXPECT_EQ(CollectDirEntry("dir", nullptr, names), -1);
    EXPECT_EQ(names, (std::vector<std::string>{"before", "name"}));
}

// The tests share one directory of 10002 entries, because creating it takes long.
class CrowdedDirectory : public ProcDirectory {
protected:
    static void SetUpTestSuite() {
        crowd = std::make_unique<TemporaryDirectory>();
        Fill(*crowd, 10002);
    }

    static void TearDownTestSuite() { crowd.reset(); }

    static inline std::unique_ptr<TemporaryDirectory> crowd;
};

TEST_F(CrowdedDirectory, EndsAfterTenThousandAndOneEntries) {
    std::vector<std::string> expected = Entries(*crowd);
    ASSERT_EQ(expected.size(), 10002U);
    expected.pop_back();
    EXPECT_EQ(Scan(*crowd, true), expected);
    EXPECT_EQ(TimeRecorder::Pauses(), WalkOf(10001));
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell",
                 "Directory files exceed.[maxFileNum=10000 dir_path=" + crowd->Path() + "]");
}

TEST_F(CrowdedDirectory, IsReadCompletelyWithoutLimit) {
    EXPECT_EQ(Scan(*crowd, false), Entries(*crowd));
    EXPECT_TRUE(Log().empty());
}

TEST_F(CrowdedDirectory, IsReadCompletelyIfItHasTenThousandAndOneEntries) {
    std::filesystem::remove(crowd->Path("10001"));
    EXPECT_EQ(Scan(*crowd, true), Entries(*crowd));
    EXPECT_EQ(Entries(*crowd).size(), 10001U);
    EXPECT_TRUE(Log().empty());
    WriteFile(crowd->Path("10001"), "");
}

}  // namespace
