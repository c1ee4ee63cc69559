#include <climits>
#include <cstring>
#include <fstream>

#include "inspect/detect_shell_utils.h"
#include "inspect_fixture.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds;

constexpr int pid = 4242;

// Number of the line with the parent's pid in the tree's status files.
constexpr size_t statusLinesToParent = 7;

class ProcessReaders : public ProcInspectTest {
protected:
    void SetUp() override {
        ProcInspectTest::SetUp();
        if (proc) {
            proc->Add({.pid = pid, .ppid = 77, .exe = "/usr/bin/bash"});
        }
    }
};

// A stat line with this start and the fields 3 to 52, each with its number as the value.
std::string StatLine(const std::string& start, int lastField = 52) {
    std::string line = start;
    for (int field = 3; field <= lastField; ++field) {
        line += " " + std::to_string(field);
    }
    return line + "\n";
}

TEST_F(ProcessReaders, JoinArgumentsByBlanks) {
    proc->AddFile(pid, "cmdline", "bash\0-c\0id; ls\0"s);
    EXPECT_EQ(DetectShellUtil::GetProcCmdline(pid), "bash -c id; ls");
}

TEST_F(ProcessReaders, ReturnNoCommandLineForAKernelThread) {
    proc->AddFile(pid, "cmdline", "");
    EXPECT_EQ(DetectShellUtil::GetProcCmdline(pid), "");
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessReaders, SleepPerByteOfTheCommandLine) {
    proc->AddFile(pid, "cmdline", std::string(200, 'a'));
    DetectShellUtil::GetProcCmdline(pid);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(1, milliseconds(1)) + Repeated(200, halfMillisecond));
}

TEST_F(ProcessReaders, ReturnLinkTargetsUnresolved) {
    std::filesystem::create_symlink("/some where\n\xff", proc->Folder() / "4242/cwd");
    EXPECT_EQ(DetectShellUtil::GetProcExe(pid), "/usr/bin/bash");
    EXPECT_EQ(DetectShellUtil::GetProcCwd(pid), "/some where\n\xff");
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessReaders, FailSilentlyForAMissingProcess) {
    for (const int gone : {4243, 0, -1, INT_MAX, INT_MIN}) {
        EXPECT_FALSE(DetectShellUtil::IsProcExist(gone)) << gone;
        EXPECT_EQ(DetectShellUtil::GetProcCmdline(gone), "") << gone;
        EXPECT_EQ(DetectShellUtil::GetProcExe(gone), "") << gone;
        EXPECT_EQ(DetectShellUtil::GetProcCwd(gone), "") << gone;
        EXPECT_EQ(DetectShellUtil::GetScriptFilePath(gone), "") << gone;
        EXPECT_EQ(DetectShellUtil::GetProcPpid(gone), -1) << gone;
        EXPECT_EQ(DetectShellUtil::ParseWriteCharsNum(gone), 0) << gone;
        EXPECT_EQ(DetectShellUtil::GetProcStartJiff(gone), 0U) << gone;
        EXPECT_EQ(DetectShellUtil::GetProcUpMs(gone), 0U) << gone;
    }
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessReaders, FindAnExistingProcess) {
    EXPECT_TRUE(DetectShellUtil::IsProcExist(pid));
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessReaders, FindTheScriptAtDescriptor255) {
    const TemporaryDirectory folder;
    const std::string script = folder.Write("script", "id\n");
    proc->AddDescriptor(pid, 255, script);
    EXPECT_EQ(DetectShellUtil::GetScriptFilePath(pid), script);
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessReaders, FindNoScriptWithoutDescriptor255) {
    EXPECT_EQ(DetectShellUtil::GetScriptFilePath(pid), "");
}

TEST_F(ProcessReaders, FindNoScriptIfItIsNotARegularFile) {
    const TemporaryDirectory folder;
    int other = 5000;
    for (const std::string& target : {"/dev/null"s, folder.Path(), folder.Path("script (deleted)"), "pipe:[77]"s}) {
        proc->Add({.pid = ++other, .ppid = 1, .exe = "/usr/bin/bash"});
        proc->AddDescriptor(other, 255, target);
        EXPECT_EQ(DetectShellUtil::GetScriptFilePath(other), "") << target;
    }
}

TEST_F(ProcessReaders, ReturnTheParent) {
    EXPECT_EQ(DetectShellUtil::GetProcPpid(pid), 77);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(statusLinesToParent, halfMillisecond));
}

TEST_F(ProcessReaders, ReturnTheParentForAnyStatusFile) {
    const struct {
        std::string status;
        int ppid;
    } cases[] = {
        {"PPid:\t0\n", 0},
        {"PPid:\t2147483647\n", INT_MAX},
        {"Name:\tPPid: 5\nPPid:\t6\n", 6},
        {"ppid: 7\n", 7},
        {"TracerPid:\t3\nPid:\t4\n", -1},
        {"PPid:\n", -1},
        {"PPid:\tabc\n", 0},
        {"PPid:\t12abc\n", 12},
        {"", -1},
        {std::string(5000, '\xff'), -1},
    };
    for (const auto& row : cases) {
        proc->AddFile(pid, "status", row.status);
        EXPECT_EQ(DetectShellUtil::GetProcPpid(pid), row.ppid) << testing::PrintToString(row.status.substr(0, 40));
    }
}

TEST_F(ProcessReaders, LimitTheBytesWrittenToAnInt) {
    const struct {
        std::string io;
        int written;
    } cases[] = {
        {"rchar: 1\nwchar: 200\nsyscr: 3\n", 200},
        {"rchar: 1\nwchar: 0\n", 0},
        {"wchar: 2147483647\n", INT_MAX},
        {"wchar: 2147483648\n", INT_MAX},
        {"wchar: 4294967296\n", INT_MAX},
        {"wchar: 4294967301\n", INT_MAX},
        {"wchar: 18446744073709551615\n", INT_MAX},
        {"wchar: 99999999999999999999999999\n", INT_MAX},
        {"wchar: -5\n", -5},
        {"wchar: -99999999999\n", INT_MIN},
        {"wchar:\n", 0},
        {"wchar: x\n", 0},
        {"", 0},
    };
    for (const auto& row : cases) {
        proc->AddFile(pid, "io", row.io);
        EXPECT_EQ(DetectShellUtil::ParseWriteCharsNum(pid), row.written) << row.io;
    }
}

TEST_F(ProcessReaders, SleepPerLineUpToTheBytesWritten) {
    proc->AddFile(pid, "io", "rchar: 1\nwchar: 200\nsyscr: 3\n");
    DetectShellUtil::ParseWriteCharsNum(pid);
    EXPECT_EQ(TimeRecorder::Pauses(), Repeated(2, halfMillisecond));
}

TEST_F(ProcessReaders, CountTheFieldsOfStatByWhiteSpace) {
    const struct {
        std::string stat;
        unsigned long long ticks;
    } cases[] = {
        {StatLine("1 (bash)"), 22},
        {StatLine("1 (a b)"), 21},
        {StatLine("1 (a b c)"), 20},
        {StatLine("1 ()"), 22},
        {StatLine("1 (\xff\x01)"), 22},
        {StatLine("1 (bash)", 22), 22},
        {StatLine("1 (bash)", 21), 0},
        {StatLine("1 (bash)", 21) + "22\n", 0},
        {StatLine("1 (bash)", 21).substr(0, 50), 0},
        {"\n", 0},
    };
    for (const auto& row : cases) {
        proc->AddFile(pid, "stat", row.stat);
        EXPECT_EQ(DetectShellUtil::GetProcStartJiff(pid), row.ticks) << row.stat;
    }
    EXPECT_TRUE(Log().empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ProcessReaders, ReadStatUpToTheBuffersLength) {
    proc->AddFile(pid, "stat", StatLine("1 (" + std::string(4000, 'x') + ")"));
    EXPECT_EQ(DetectShellUtil::GetProcStartJiff(pid), 22U);
    proc->AddFile(pid, "stat", StatLine("1 (" + std::string(10000, 'x') + ")"));
    EXPECT_EQ(DetectShellUtil::GetProcStartJiff(pid), 0U);
}

TEST_F(ProcessReaders, LogAStatFileThatCannotBeRead) {
    proc->AddFile(pid, "stat", "");
    EXPECT_EQ(DetectShellUtil::GetProcStartJiff(pid), 0U);
    ExpectLogged(LOG_LEVEL_ERROR, "detect_shell_utils", "read stat failed\n");
}

TEST_F(ProcessReaders, LogIfThereIsNoMemoryForStat) {
    proc->AddFile(pid, "stat", StatLine("1 (bash)"));
    FailingCalls::FailAllocation(1);
    EXPECT_EQ(DetectShellUtil::GetProcStartJiff(pid), 0U);
    ExpectLogged(LOG_LEVEL_ERROR, "detect_shell_utils", "Alloc buf memory failed.");
    EXPECT_EQ(DetectShellUtil::GetProcStartJiff(pid), 22U);
}

TEST_F(ProcessReaders, ReturnTheStartInMilliseconds) {
    const unsigned long long hz = static_cast<unsigned long long>(sysconf(_SC_CLK_TCK));
    proc->AddFile(pid, "stat", StatLine("1 (bash)", 21).substr(0, StatLine("1 (bash)", 21).size() - 1) + " 123457 23");
    EXPECT_EQ(DetectShellUtil::GetProcUpMs(pid), 123457000ULL / hz);
    proc->AddFile(pid, "stat", "");
    EXPECT_EQ(DetectShellUtil::GetProcUpMs(pid), 0U);
}

TEST(StartJiff, ReadsSixtyFourBits) {
    const std::string before = "1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20 21 ";
    const struct {
        std::string field;
        unsigned long long ticks;
    } cases[] = {
        {"0", 0}, {"4294967296", 4294967296ULL}, {"18446744073709551615", ULLONG_MAX}, {"x", 0}, {"", 0},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(DetectShellUtil::StartJiffOfStat((before + row.field).c_str()), row.ticks) << row.field;
    }
    EXPECT_EQ(DetectShellUtil::StartJiffOfStat(""), 0U);
}

TEST(TicksToMilliseconds, DoesNotOverflow) {
    const struct {
        unsigned long long ticks;
        long hz;
        unsigned long long milliseconds;
    } cases[] = {
        {0, 100, 0},
        {1, 100, 10},
        {5, 3, 1666},
        {123456, 100, 1234560},
        {18446744073709551ULL, 1, 18446744073709551000ULL},
        {18446744073709552ULL, 1, 0},
        {18446744073709551ULL, 100, 184467440737095510ULL},
        {18446744073709552ULL, 100, 184467440737095000ULL},
        {ULLONG_MAX, 100, 0},
        {ULLONG_MAX, 1000, 18446744073709551000ULL},
        {ULLONG_MAX, 999, 0},
        {100, 0, 0},
        {100, -1, 0},
        {0, LONG_MAX, 0},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(DetectShellUtil::TicksToMilliseconds(row.ticks, row.hz), row.milliseconds)
            << row.ticks << " " << row.hz;
    }
}

class ThisHostsProcesses : public InspectTest {};

TEST_F(ThisHostsProcesses, AreReadCorrectly) {
    EXPECT_TRUE(DetectShellUtil::IsProcExist(getpid()));
    EXPECT_EQ(DetectShellUtil::GetProcPpid(getpid()), getppid());
    EXPECT_EQ(DetectShellUtil::GetProcPpid(1), 0);
    EXPECT_EQ(DetectShellUtil::GetProcExe(getpid()), std::filesystem::read_symlink("/proc/self/exe"));
    EXPECT_EQ(DetectShellUtil::GetProcCwd(getpid()), std::filesystem::current_path());
    EXPECT_GT(DetectShellUtil::ParseWriteCharsNum(getpid()), 0) << "this program has written its own output";
}

TEST_F(ThisHostsProcesses, HaveTheStartTimeFromStat) {
    const std::string stat = FileText("/proc/self/stat");
    // The third field follows the closing bracket of the name.
    const char* field = stat.c_str() + stat.rfind(')') + 1;
    for (int i = 3; i < 22; ++i) {
        field = std::strchr(field + 1, ' ');
        ASSERT_NE(field, nullptr);
    }
    EXPECT_EQ(DetectShellUtil::GetProcStartJiff(getpid()), std::strtoull(field, nullptr, 10));
    EXPECT_GT(DetectShellUtil::GetProcUpMs(getpid()), 0U);
}

}  // namespace
