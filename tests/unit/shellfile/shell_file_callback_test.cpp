#include "shellfile/shell_file_callback.h"

#include "shellfile_fixture.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr char shell[] = "/shells/sh";
const int stateAtLoad = shellEventStarted;

class ShellFileGate : public ShellFileTest {
protected:
    void SetUp() override {
        ShellFileTest::SetUp();
        InitShellsHashSize({shell, "/shells/bash"});
        shellEventStarted = 1;
    }

    void TearDown() override {
        shellEventStarted = 0;
        ShellFileTest::TearDown();
    }

    static void Report(const char* path, const char* otherPath, int operation = 3) {
        ShellFileCallback(0, path, otherPath, false, operation, "");
    }
};

TEST_F(ShellFileGate, HandlesAReportOnAShell) {
    Report(shell, nullptr);
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0]["path"], shell);
    EXPECT_EQ(TimeRecorder::Pauses(), (std::vector<nanoseconds>{milliseconds(10), microseconds(100)}));
}

TEST_F(ShellFileGate, TakesTheOtherPathIfOnlyThatIsAShell) {
    Report("/bin/ls", shell, 4);
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0]["path"], shell);
    EXPECT_EQ(Contents()[0]["relatedPath"], "/bin/ls");
}

TEST_F(ShellFileGate, TakesTheOtherPathIfTheFirstIsNull) {
    Report(nullptr, shell, 6);
    ASSERT_EQ(Contents().size(), 1U);
    EXPECT_EQ(Contents()[0]["path"], shell);
}

TEST_F(ShellFileGate, TakesTheFirstPathIfBothAreShells) {
    Report("/shells/bash", shell, 4);
    EXPECT_EQ(Contents().at(0)["path"], "/shells/bash");
    EXPECT_EQ(Contents().at(0)["relatedPath"], shell);
}

TEST_F(ShellFileGate, DropsOtherReportsWithoutAPause) {
    const struct {
        const char* path;
        const char* otherPath;
    } cases[] = {
        {nullptr, nullptr},       {"", ""},      {"/shells", nullptr}, {"/shells/ls", nullptr},
        {"/shells//sh", nullptr}, {nullptr, ""}, {"", "/bin/ls"},      {"sh", nullptr},
    };
    for (const auto& row : cases) {
        Report(row.path, row.otherPath);
    }
    EXPECT_TRUE(Fake::TheAgent().events.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ShellFileGate, DropsAnEmptyPathEvenIfItIsListed) {
    InitShellsHashSize({shell, ""});
    Report("", nullptr);
    Report(nullptr, "");
    EXPECT_TRUE(Fake::TheAgent().events.empty());
    Report("", shell);
    EXPECT_EQ(Contents().at(0)["path"], shell);
}

TEST_F(ShellFileGate, DropsAReportWithATemporaryNameOnEitherSide) {
    Report("/shells/sh.dpkg-new", shell, 4);
    Report(shell, "/shells/sh.dpkg-tmp", 4);
    EXPECT_TRUE(Fake::TheAgent().events.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(ShellFileGate, PausesForAnUnknownOperationToo) {
    Report(shell, nullptr, 7);
    Report(shell, nullptr, 0);
    EXPECT_TRUE(Fake::TheAgent().events.empty());
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>(2, microseconds(100)));
}

TEST_F(ShellFileGate, DropsReportsBeforeTheStart) {
    EXPECT_EQ(stateAtLoad, 0);
    shellEventStarted = 0;
    Report(shell, nullptr);
    EXPECT_TRUE(Fake::TheAgent().events.empty());
}

}  // namespace
