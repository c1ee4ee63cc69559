#include "shellfile/shell_baseline.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <thread>
#include <vector>

#include "access_watch.h"
#include "tests/fakes/fake_agent.h"
#include "tests/support/temporary_directory.h"

namespace {

constexpr char shellText[] = "a shell";
constexpr char shellDigest[] = "1b7870670d635a5541c6399eed069e0c84564c0471c0fa6ecc2201ee42f726bf";
constexpr char otherTextOfSameSize[] = "a shelf";
constexpr char longerText[] = "another shell";
constexpr char longerDigest[] = "107e04e6890a548a01a339381d1be49b95b2b530002c91b5a2a4aa77cf8319b2";
constexpr char emptyDigest[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class ShellBaseline : public testing::Test {
protected:
    void SetUp() override {
        Fake::ResetAgent();
        shell = folder.Write("sh", shellText);
    }

    void TearDown() override {
        Fake::TheAgent().atEachCall = nullptr;
        InitShellsHashSize({});
    }

    static std::string LogText(const std::string& path, const std::string& digest) {
        return "[file=" + path + " hash=" + digest + "]";
    }

    TemporaryDirectory folder;
    std::string shell;
};

TEST_F(ShellBaseline, FindsACopyOfAShellUnderAnotherName) {
    InitShellsHashSize({shell});
    EXPECT_TRUE(IsShellByHash(shell));
    EXPECT_TRUE(IsShellByHash(folder.Write("tool", shellText)));
    EXPECT_FALSE(IsShellByHash(folder.Write("other", otherTextOfSameSize)));
    EXPECT_FALSE(IsShellByHash(folder.Write("longer", longerText)));
}

TEST_F(ShellBaseline, FindsAShellOverLinks) {
    InitShellsHashSize({shell});
    std::filesystem::create_symlink("sh", folder.Path("link"));
    std::filesystem::create_symlink("link", folder.Path("second-link"));
    std::filesystem::create_hard_link(shell, folder.Path("hard-link"));
    for (const char* name : {"link", "second-link", "hard-link", "./sh", "/sh"}) {
        EXPECT_TRUE(IsShellByHash(folder.Path(name))) << name;
    }
}

// A 32-bit time_t cannot hold some of these dates.
TEST_F(ShellBaseline, FindsACopyOfAnyDate) {
    constexpr time_t dates[] = {-1, 0x7FFFFFFF, 0x80000000, 2208988800};  // the last one is the start of 2040
    InitShellsHashSize({shell});
    const std::string copy = folder.Write("tool", shellText);
    for (const time_t date : dates) {
        const timespec times[2] = {{.tv_sec = date, .tv_nsec = 0}, {.tv_sec = date, .tv_nsec = 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, copy.c_str(), times, 0), 0) << date;
        EXPECT_TRUE(IsShellByHash(copy)) << date;
    }
}

TEST_F(ShellBaseline, TakesAShellOfAnyDate) {
    const timespec times[2] = {{.tv_sec = 2208988800, .tv_nsec = 0}, {.tv_sec = 2208988800, .tv_nsec = 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, shell.c_str(), times, 0), 0);
    InitShellsHashSize({shell});
    EXPECT_TRUE(IsShellByHash(folder.Write("tool", shellText)));
}

TEST_F(ShellBaseline, ComparesTheWholeContent) {
    std::string text(200000, 'x');
    InitShellsHashSize({folder.Write("large", text)});
    EXPECT_TRUE(IsShellByHash(folder.Write("copy", text)));
    text.back() = 'y';
    EXPECT_FALSE(IsShellByHash(folder.Write("copy", text)));
    text.back() = 'x';
    text.front() = 'y';
    EXPECT_FALSE(IsShellByHash(folder.Write("copy", text)));
}

TEST_F(ShellBaseline, FindsNoShellInAFileThatCannotBeRead) {
    // The empty shell has the size that a FIFO has too.
    InitShellsHashSize({shell, folder.Write("empty", ""), folder.Path()});
    ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
    std::filesystem::create_symlink("gone", folder.Path("dangling"));
    std::filesystem::create_symlink("loop", folder.Path("loop"));
    for (const std::string& path :
         {std::string(), folder.Path("gone"), folder.Path("dangling"), folder.Path("loop"), folder.Path("fifo"),
          folder.Path(), shell + "/", shell + std::string("\0x", 2), std::string("/dev/null")}) {
        EXPECT_FALSE(IsShellByHash(path)) << path;
    }
    EXPECT_TRUE(IsShellByHash(folder.Write("other-empty", "")));
}

TEST_F(ShellBaseline, ReadsNoFileOfAnotherSize) {
    InitShellsHashSize({shell});
    const std::string sameSize = folder.Write("same-size", otherTextOfSameSize);
    const AccessWatch read(sameSize);
    EXPECT_FALSE(IsShellByHash(sameSize));
    EXPECT_TRUE(read.SawAccess());
    for (const std::string& text : {std::string(), std::string("a shel"), std::string(longerText)}) {
        const std::string otherSize = folder.Write("other-size", text);
        const AccessWatch unread(otherSize);
        EXPECT_FALSE(IsShellByHash(otherSize));
        EXPECT_FALSE(unread.SawAccess()) << text;
    }
}

TEST_F(ShellBaseline, ReadsNothingWithoutShells) {
    InitShellsHashSize({});
    const AccessWatch unread(shell);
    EXPECT_FALSE(IsShellByHash(shell));
    EXPECT_FALSE(unread.SawAccess());
    EXPECT_FALSE(IsShellFile(shell));
    EXPECT_FALSE(IsShellFile(""));
    EXPECT_FALSE(IsShellSize(0));
    EXPECT_TRUE(ShellFiles().empty());
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ShellBaseline, KeepsAMissingShellByItsNameOnly) {
    std::filesystem::create_symlink("gone", folder.Path("dangling"));
    const std::set<std::string> shells = {folder.Path("gone"), folder.Path("dangling"), "", "relative"};
    InitShellsHashSize(shells);
    EXPECT_EQ(ShellFiles(), shells);
    for (const std::string& path : shells) {
        EXPECT_TRUE(IsShellFile(path)) << path;
        EXPECT_FALSE(IsShellByHash(path)) << path;
    }
    EXPECT_FALSE(IsShellSize(0));
    EXPECT_EQ(ShellWithDigest(emptyDigest), "");
    EXPECT_EQ(ShellWithDigest(""), "");
    EXPECT_TRUE(Fake::TheAgent().log.empty());
    // A file that is made there later is not a shell by its content.
    folder.Write("gone", shellText);
    EXPECT_FALSE(IsShellByHash(folder.Path("gone")));
}

TEST_F(ShellBaseline, KeepsTheSizeOfAShellWithoutADigest) {
    InitShellsHashSize({folder.Path()});
    struct stat info {};
    ASSERT_EQ(stat(folder.Path().c_str(), &info), 0);
    EXPECT_TRUE(IsShellSize(static_cast<unsigned long>(info.st_size)));
    EXPECT_TRUE(IsShellFile(folder.Path()));
    EXPECT_EQ(ShellWithDigest(""), "");
    EXPECT_TRUE(Fake::TheAgent().log.empty());
}

TEST_F(ShellBaseline, KnowsTheSizesOfItsShells) {
    const std::string longer = folder.Write("longer", longerText);
    std::filesystem::create_symlink(longer, folder.Path("link"));
    InitShellsHashSize({shell, folder.Path("link")});
    for (unsigned long size = 0; size < 100; ++size) {
        EXPECT_EQ(IsShellSize(size), size == 7 || size == 13) << size;
    }
}

TEST_F(ShellBaseline, TakesTheSizesBeforeTheDigests) {
    Fake::TheAgent().atEachCall = [this](const std::string&) { folder.Write("sh", longerText); };
    InitShellsHashSize({folder.Write("a", ""), shell});
    EXPECT_TRUE(IsShellSize(7));
    EXPECT_FALSE(IsShellSize(13));
    EXPECT_EQ(ShellWithDigest(longerDigest), shell);
}

TEST_F(ShellBaseline, ComparesPathsByteByByte) {
    std::filesystem::create_symlink("sh", folder.Path("link"));
    const std::string link = folder.Path("link");
    InitShellsHashSize({link, "/opt//odd/./shell"});
    EXPECT_TRUE(IsShellFile(link));
    EXPECT_TRUE(IsShellFile("/opt//odd/./shell"));
    for (const std::string& path :
         {shell, folder.Path("/link"), folder.Path("./link"), link + "/", link + "x", link.substr(0, link.size() - 1),
          "/" + link, link + std::string("\0", 1), std::string("link"), std::string(), std::string("/opt/odd/shell")}) {
        EXPECT_FALSE(IsShellFile(path)) << path;
    }
}

TEST_F(ShellBaseline, GivesTheResolvedPathOfTheShellWithADigest) {
    std::filesystem::create_symlink("sh", folder.Path("link"));
    InitShellsHashSize({folder.Path("link"), folder.Write("longer", longerText)});
    EXPECT_EQ(ShellWithDigest(shellDigest), shell);
    EXPECT_EQ(ShellWithDigest(longerDigest), folder.Path("longer"));
    for (const std::string& digest : {std::string(), std::string(emptyDigest), std::string(shellDigest).substr(0, 63),
                                      std::string(shellDigest) + "0", std::string(64, '0')}) {
        EXPECT_EQ(ShellWithDigest(digest), "") << digest;
    }
}

TEST_F(ShellBaseline, GivesTheLastOfSeveralShellsWithOneContent) {
    const std::string later = folder.Write("sh2", shellText);
    InitShellsHashSize({later, shell});
    EXPECT_EQ(ShellWithDigest(shellDigest), later);
    // The order is that of the paths passed in, not of the resolved paths.
    std::filesystem::create_symlink("sh", folder.Path("z"));
    InitShellsHashSize({folder.Path("z"), later, shell});
    EXPECT_EQ(ShellWithDigest(shellDigest), shell);
}

TEST_F(ShellBaseline, LogsEachDigestInTheOrderOfThePaths) {
    std::filesystem::create_symlink("sh", folder.Path("a-link"));
    const std::string longer = folder.Write("b-longer", longerText);
    const std::string empty = folder.Write("c-empty", "");
    InitShellsHashSize({shell, folder.Path("gone"), empty, longer, folder.Path("a-link")});
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL),
              (std::vector<std::string>{LogText(folder.Path("a-link"), shellDigest), LogText(longer, longerDigest),
                                        LogText(empty, emptyDigest), LogText(shell, shellDigest)}));
    EXPECT_EQ(Fake::TheAgent().log.size(), 4U);
    for (const Fake::LogLine& line : Fake::TheAgent().log) {
        EXPECT_EQ(line.channel, "NormalLog");
    }
}

TEST_F(ShellBaseline, LogsAPathWithFormatDirectivesAsItIs) {
    const std::string odd = folder.Write("%s%n\n\x80", shellText);
    InitShellsHashSize({odd});
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL), std::vector<std::string>{LogText(odd, shellDigest)});
    EXPECT_EQ(ShellWithDigest(shellDigest), odd);
}

TEST_F(ShellBaseline, IsReplacedAsAWhole) {
    const std::string longer = folder.Write("longer", longerText);
    InitShellsHashSize({shell});
    InitShellsHashSize({longer});
    EXPECT_FALSE(IsShellFile(shell));
    EXPECT_FALSE(IsShellByHash(shell));
    EXPECT_FALSE(IsShellSize(7));
    EXPECT_EQ(ShellWithDigest(shellDigest), "");
    EXPECT_EQ(ShellFiles(), std::set<std::string>{longer});
    EXPECT_TRUE(IsShellFile(longer));
    EXPECT_TRUE(IsShellByHash(longer));
    EXPECT_TRUE(IsShellSize(13));
    EXPECT_EQ(ShellWithDigest(longerDigest), longer);
}

TEST_F(ShellBaseline, StaysTheSameUntilItIsTakenAgain) {
    const std::string copy = folder.Write("copy", shellText);
    InitShellsHashSize({shell});
    folder.Write("sh", otherTextOfSameSize);
    EXPECT_FALSE(IsShellByHash(shell));
    EXPECT_TRUE(IsShellByHash(copy));
    EXPECT_TRUE(IsShellFile(shell));
    InitShellsHashSize({shell});
    EXPECT_TRUE(IsShellByHash(shell));
    EXPECT_FALSE(IsShellByHash(copy));
}

TEST_F(ShellBaseline, AnswersOtherThreadsWhileItIsReplaced) {
    const std::string longer = folder.Write("longer", longerText);
    InitShellsHashSize({shell});
    std::atomic<bool> ended = false;
    std::atomic<int> answers = 0;
    std::atomic<int> wrongAnswers = 0;
    constexpr int readerCount = 3;
    std::vector<std::thread> readers;
    readers.reserve(readerCount);
    for (int i = 0; i < readerCount; ++i) {
        readers.emplace_back([&] {
            while (!ended) {
                // An entry that is in both the old and the new baseline is never missing.
                const bool right = IsShellFile(shell) && IsShellByHash(shell) && IsShellSize(7) &&
                                   ShellWithDigest(shellDigest) == shell && ShellFiles().contains(shell);
                wrongAnswers += right ? 0 : 1;
                ++answers;
            }
        });
    }
    for (int i = 0; i < 100 || answers < 100; ++i) {
        InitShellsHashSize(i % 2 == 0 ? std::set<std::string>{longer, shell} : std::set<std::string>{shell});
    }
    ended = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrongAnswers, 0);
}

TEST(AttrValue, IsEmptyIfTheKeyIsAbsent) {
    const std::map<std::string, std::string> values = {{"key", "value"}, {"empty", ""}, {"", "of no key"}};
    const struct {
        const char* key;
        const char* value;
    } cases[] = {{"key", "value"}, {"empty", ""}, {"", "of no key"}, {"absent", ""}, {"ke", ""}, {"Key", ""}};
    for (const auto& row : cases) {
        EXPECT_EQ(GetAttrValue(values, row.key), row.value) << row.key;
        EXPECT_EQ(GetAttrValue({}, row.key), "") << row.key;
    }
}

}  // namespace
