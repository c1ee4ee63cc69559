#include "inspect/detect_shell_utils.h"

#include <sys/stat.h>
#include <unistd.h>

#include "inspect_fixture.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

constexpr size_t blockSize = 4096;

class OpenFile : public InspectTest {
protected:
    const TemporaryDirectory folder;
};

TEST_F(OpenFile, ReturnsAReadOnlyDescriptorThatIsClosedOnExec) {
    const int fd = DetectShellUtil::OpenFileFd(folder.Write("file", "text"));
    ASSERT_GE(fd, 0);
    char text[8] = {};
    EXPECT_EQ(read(fd, text, sizeof(text)), 4);
    EXPECT_STREQ(text, "text");
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    close(fd);
}

TEST_F(OpenFile, ReturnsAStreamForReading) {
    FILE* stream = DetectShellUtil::OpenFile(folder.Write("file", "text"));
    ASSERT_NE(stream, nullptr);
    char text[8] = {};
    EXPECT_STREQ(fgets(text, sizeof(text), stream), "text");
    EXPECT_EQ(fputs("x", stream), EOF);
    fclose(stream);
}

TEST_F(OpenFile, FollowsLinks) {
    folder.Write("file", "text");
    ASSERT_EQ(symlink("file", folder.Path("link").c_str()), 0);
    EXPECT_EQ(DetectShellUtil::ReadFileContent(folder.Path("link")), "text");
}

TEST_F(OpenFile, RefusesAPathThatDoesNotResolve) {
    ASSERT_EQ(symlink("nowhere", folder.Path("dangling").c_str()), 0);
    ASSERT_EQ(symlink("loop", folder.Path("loop").c_str()), 0);
    for (const std::string& path : {folder.Path("missing"), folder.Path("dangling"), folder.Path("loop"), ""s}) {
        EXPECT_EQ(DetectShellUtil::OpenFileFd(path), -1) << path;
        EXPECT_EQ(DetectShellUtil::OpenFile(path), nullptr) << path;
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(OpenFile, DoesNotBlockOnAFifo) {
    ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
    EXPECT_EQ(DetectShellUtil::ReadFileContent(folder.Path("fifo")), "");
}

class ReadFileContent : public InspectTest {
protected:
    std::string Read(const std::string& content) const {
        return DetectShellUtil::ReadFileContent(folder.Write("file", content));
    }

    const TemporaryDirectory folder;
};

TEST_F(ReadFileContent, TurnsABlockIntoText) {
    const struct {
        std::string content;
        std::string text;
    } cases[] = {
        {"", ""},
        {"bash\0-c\0id\0"s, "bash -c id"},
        {"bash\0"s, "bash"},
        {"bash", "bash"},
        {"bash\0-i"s, "bash -i"},
        {"a\0\0b\0"s, "a  b"},
        {"\0"s, ""},
        {"\0\0\0"s, ""},
        {"a\0\0\0"s, "a"},
        {"\n", ""},
        {"one\ntwo\n", "one\ntwo"},
        {"one\n\n", "one"},
        {"bash\0echo a\nb\0"s, "bash echo a\nb"},
        {" \t\v\f\r one two \t\v\f\r", "one two"},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(Read(row.content), row.text) << testing::PrintToString(row.content);
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(ReadFileContent, KeepsAnyByte) {
    std::string bytes = "<";
    for (int byte = 1; byte < 256; ++byte) {
        bytes += static_cast<char>(byte);
    }
    bytes += '>';
    EXPECT_EQ(Read(bytes), bytes);
}

TEST_F(ReadFileContent, JoinsBlocksWithoutABlankWhereAZeroByteEndsTheFirst) {
    const std::string first(blockSize - 1, 'a');
    EXPECT_EQ(Read(first + '\0' + "bb\0cc\0"s), first + "bb cc");
}

TEST_F(ReadFileContent, DropsANewlineThatEndsABlockAndKeepsOthers) {
    const std::string first = "x\n" + std::string(blockSize - 3, 'a');
    EXPECT_EQ(Read(first + '\n' + "b\nc"), first + "b\nc");
}

TEST_F(ReadFileContent, JoinsBlocksThatEndInAnyOtherByte) {
    const std::string first(blockSize, 'a');
    EXPECT_EQ(Read(first + "\0b"s), first + " b");
    EXPECT_EQ(Read(std::string(3 * blockSize, 'z')), std::string(3 * blockSize, 'z'));
}

TEST_F(ReadFileContent, SleepsOneMillisecondPerBlockAndHalfAMillisecondPerByte) {
    for (const size_t size : {size_t{1}, size_t{200}, blockSize}) {
        const std::string path = folder.Write("file", std::string(size, 'a'));
        TimeRecorder::Reset();
        DetectShellUtil::ReadFileContent(path);
        EXPECT_EQ(TimeRecorder::Pauses(), Repeated(1, milliseconds(1)) + Repeated(size, halfMillisecond)) << size;
    }
}

TEST_F(ReadFileContent, SleepsForEachBlockOfALongFile) {
    Read(std::string(2 * blockSize + 7, '\0'));
    const PauseList block = Repeated(1, milliseconds(1)) + Repeated(blockSize, halfMillisecond);
    EXPECT_EQ(TimeRecorder::Pauses(), block + block + Repeated(1, milliseconds(1)) + Repeated(7, halfMillisecond));
}

TEST_F(ReadFileContent, DoesNotSleepIfThereIsNothingToRead) {
    EXPECT_EQ(Read(""), "");
    EXPECT_EQ(DetectShellUtil::ReadFileContent(folder.Path("missing")), "");
    EXPECT_EQ(DetectShellUtil::ReadFileContent(folder.Path()), "") << "a directory opens and cannot be read";
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_TRUE(Log().empty());
}

TEST_F(ReadFileContent, ReturnsNothingWithoutMemory) {
    const std::string path = folder.Write("file", "text");
    FailingCalls::FailAllocation(1);
    EXPECT_EQ(DetectShellUtil::ReadFileContent(path), "");
    ExpectLogged(LOG_LEVEL_ERROR, "detect_shell_utils", "Alloc buf memory failed.");
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
    EXPECT_EQ(DetectShellUtil::ReadFileContent(path), "text");
}

TEST_F(ReadFileContent, NeedsNoMemoryForAFileThatDoesNotOpen) {
    FailingCalls::FailAllocation(1);
    EXPECT_EQ(DetectShellUtil::ReadFileContent(folder.Path("missing")), "");
    EXPECT_TRUE(Log().empty());
}

class ParseFromFile : public InspectTest {
protected:
    std::string Parse(const std::string& content, const std::string& key, const std::string& format = "%*s%s") {
        const std::string path = folder.Write("file", content);
        TimeRecorder::Reset();
        return DetectShellUtil::ParseFromFile(path, key, format);
    }

    const TemporaryDirectory folder;
};

TEST_F(ParseFromFile, ScansTheFirstLineThatBeginsWithTheKey) {
    const struct {
        std::string content;
        std::string key;
        std::string value;
    } cases[] = {
        {"Pid:\t7\nPPid:\t8\nPPid:\t9\n", "PPid:", "8"},
        {"Pid:\t7\nPPid:\t8", "PPid:", "8"},
        {"Pid:\t7\nPPid:\t8\n", "ppid:", "8"},
        {"pPiD:\t8\n", "PPid:", "8"},
        {"TracerPPid:\t7\nPPid:\t8\n", "PPid:", "8"},
        {" PPid:\t7\nPPid:\t8\n", "PPid:", "8"},
        {"PPid:\t7\n", "Pid:", ""},
        {"PPi\nPPid:\n", "PPid: ", ""},
        {"PPid:\n", "PPid:", ""},
        {"PPid:\n8\n", "PPid:", ""},
        {"\n\nkey value\n", "key", "value"},
        {"key \xff\x01\x80%s%n\n", "key", "\xff\x01\x80%s%n"},
        {"key a\0b\n"s, "key", "a"},
        {"ke\0y a\nkey b\n"s, "key", "b"},
        {"", "key", ""},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(Parse(row.content, row.key), row.value) << testing::PrintToString(row.content) << " " << row.key;
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(ParseFromFile, AppliesTheFormat) {
    EXPECT_EQ(Parse("Uid:\t1\t2\t3\n", "Uid:", "%*s%*s%s"), "2");
    EXPECT_EQ(Parse("Uid:\t1\n", "Uid:", "Uid:%s"), "1");
    EXPECT_EQ(Parse("Uid:\t1\n", "Uid:", "Gid:%s"), "");
    EXPECT_EQ(Parse("    \n", " ", "%s"), "") << "the line ends before the first conversion";
}

TEST_F(ParseFromFile, NeedsAllThreeArguments) {
    const std::string path = folder.Write("file", "key value\n");
    EXPECT_EQ(DetectShellUtil::ParseFromFile("", "key", "%*s%s"), "");
    EXPECT_EQ(DetectShellUtil::ParseFromFile(path, "", "%*s%s"), "");
    EXPECT_EQ(DetectShellUtil::ParseFromFile(path, "key", ""), "");
    EXPECT_EQ(DetectShellUtil::ParseFromFile(folder.Path("missing"), "key", "%*s%s"), "");
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ParseFromFile, SleepsHalfAMillisecondPerLineUpToTheMatch) {
    const struct {
        std::string content;
        size_t lines;
    } cases[] = {
        {"key 1\nother 2\n", 1}, {"a\nb\nkey 1\nc\n", 3}, {"a\nb\nc\n", 3}, {"a\nb\nc", 3}, {"", 0},
    };
    for (const auto& row : cases) {
        Parse(row.content, "key");
        EXPECT_EQ(TimeRecorder::Pauses(), Repeated(row.lines, halfMillisecond)) << row.content;
    }
}

TEST_F(ParseFromFile, SplitsAnOverlongLine) {
    const std::string piece(1023, 'x');
    EXPECT_EQ(Parse(piece + piece + "key value\n", "key"), "value");
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(3, halfMillisecond));
    EXPECT_EQ(Parse(piece + "xkey value\nkey other\n", "key"), "other");
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(3, halfMillisecond));
}

TEST_F(ParseFromFile, ReturnsTheLongestValueThatFitsInALine) {
    const std::string value(1023 - 4, 'v');
    EXPECT_EQ(Parse("key " + value + "more\n", "key"), value);
}

TEST_F(ReadFileContent, EndsWithItsBlockOnceAStopHasBegun) {
    const std::string path = folder.Write("long", std::string(3 * blockSize, 'x'));
    TimeRecorder::AtEachPause([](size_t number) {
        if (number == 10) {
            moduleRunning = 0;
            stopBegun = true;
        }
    });
    EXPECT_EQ(DetectShellUtil::ReadFileContent(path), std::string(blockSize, 'x'));
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "thread was stopped by StopModule run.[run=0]");
}

// As during a start, and after a start that failed in part.
TEST_F(ReadFileContent, IsCompleteIfTheModuleDoesNotRun) {
    moduleRunning = 0;
    EXPECT_EQ(Read(std::string(3 * blockSize, 'x')), std::string(3 * blockSize, 'x'));
    EXPECT_TRUE(Log().empty());
}

}  // namespace
