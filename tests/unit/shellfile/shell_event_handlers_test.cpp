#include "shellfile/shell_event_handlers.h"

#include "shellfile_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr char shell[] = "/shells/sh";
constexpr char otherShell[] = "/shells/bash";

class ShellEventHandlers : public ShellFileTest {
protected:
    void SetUp() override {
        ShellFileTest::SetUp();
        InitShellsHashSize({shell, otherShell});
    }

    // Returns the event as the handler leaves it.
    static SHELL_EVENT Report(int operation, const char* path, const char* otherPath, const std::string& detail = "") {
        SHELL_EVENT event;
        event.path = shell;
        HandleShellReport(event, path, otherPath, operation, detail);
        return event;
    }

    // "type from to" of each event's attribute, in order.
    static std::vector<std::string> Attributes() {
        std::vector<std::string> texts;
        for (const auto& content : Contents()) {
            const auto& attribute = content["attribute"][0];
            texts.push_back(attribute["type"].Text() + " " + attribute["from"].Text() + " " + attribute["to"].Text());
        }
        return texts;
    }
};

TEST_F(ShellEventHandlers, ReportAWriteAndARemovalWithThePathAlone) {
    Report(2, shell, nullptr, "x oaccess=1 access=2");
    Report(3, shell, "/elsewhere");
    ASSERT_EQ(Contents().size(), 2U);
    EXPECT_EQ(Contents()[0].Dump(), R"({"path":"/shells/sh","operationType":"modify"})");
    EXPECT_EQ(Contents()[1].Dump(), R"({"path":"/shells/sh","operationType":"delete"})");
}

TEST_F(ShellEventHandlers, ReportTheOtherNameOfAMove) {
    const struct {
        const char* path;
        const char* otherPath;
        int operation;  // by which the event differs, though not its document
        const char* relatedPath;
    } cases[] = {
        {shell, "/tmp/gone", 5, "/tmp/gone"},
        {"/tmp/new", shell, 6, "/tmp/new"},
        {shell, otherShell, 5, otherShell},
        {shell, nullptr, 4, ""},
        {nullptr, shell, 4, ""},
        {shell, "", 4, ""},
        {"", shell, 4, ""},
        {"/tmp/one", "/tmp/two", 4, ""},
    };
    for (const auto& row : cases) {
        Fake::TheAgent().events.clear();
        EXPECT_EQ(Report(4, row.path, row.otherPath).fileOperationType, row.operation);
        ASSERT_EQ(Contents().size(), 1U);
        EXPECT_EQ(Contents()[0]["operationType"], "move");
        EXPECT_EQ(Contents()[0]["path"], shell);
        EXPECT_EQ(Contents()[0]["relatedPath"], row.relatedPath);
    }
}

TEST_F(ShellEventHandlers, ReplaceTheOtherNameOfAMove) {
    SHELL_EVENT event;
    event.relatedPath = "/tmp/earlier";
    HandleShellReport(event, shell, nullptr, 4, "");
    EXPECT_EQ(Contents().at(0)["relatedPath"], "");
}

TEST_F(ShellEventHandlers, ReportTheOtherPathOfAHalfMoveEvenIfItIsTheShell) {
    for (const int operation : {5, 6}) {
        Fake::TheAgent().events.clear();
        EXPECT_EQ(Report(operation, "/tmp/neighbour", shell).fileOperationType, operation);
        EXPECT_EQ(Contents().at(0)["relatedPath"], shell);
        EXPECT_EQ(Contents().at(0)["path"], shell);
        Report(operation, shell, nullptr);
        EXPECT_EQ(Contents().at(1)["relatedPath"], "");
    }
}

TEST_F(ShellEventHandlers, ReportEachAttributeThatHasBothValues) {
    const struct {
        const char* detail;
        std::vector<std::string> attributes;
    } cases[] = {
        {"x oaccess=33261 access=33133", {"permission -rwxr-xr-x -r-xr-xr-x"}},
        {"oaccess=493 access=365", {}},
        {"x olink=1 link=2 ouid=0 cuid=1000", {"owner user0 user1000", "links 1 2"}},
        // Values are numbers of the size of a long.
        {"x ogid=0 cgid=4294967294",
         {sizeof(long) == 4 ? "group group0 group2147483647" : "group group0 group4294967294"}},
        {"x oaccess=33261 access=33261 ouid=1 cuid=2 ogid=3 cgid=4 olink=5 link=6",
         {"permission -rwxr-xr-x -rwxr-xr-x", "owner user1 user2", "group group3 group4", "links 5 6"}},
        {"x olink=1 link=2 olink=3", {"links 3 2"}},
        {"x olink=01 link=two", {"links 01 two"}},
        {"x ouid=12abc cuid=none", {"owner user12 user0"}},
        {"x ouid= cuid=5", {}},
        {"x ouid=5", {}},
        {"x ouid=1=2 cuid=5", {}},
        {"x ouid==1 cuid=5", {}},
        {"x =ouid=1 cuid=5", {}},
        {"x ouid=1 cuid=5=", {}},
        {"x ouid=1  cuid=5", {"owner user1 user5"}},
        {" ouid=1 cuid=5", {}},
        {"x ouid=1 ouid= cuid=5", {"owner user1 user5"}},
        {"x unknown=1 link", {}},
        {"x", {}},
        {"", {}},
    };
    for (const auto& row : cases) {
        Fake::TheAgent().events.clear();
        Report(1, shell, nullptr, row.detail);
        EXPECT_EQ(Attributes(), row.attributes) << row.detail;
    }
}

TEST_F(ShellEventHandlers, PauseForEachEventOfOneReport) {
    Report(1, shell, nullptr, "x oaccess=1 access=2 ouid=1 cuid=2 ogid=3 cgid=4 olink=5 link=6");
    EXPECT_EQ(TimeRecorder::Pauses(), std::vector<nanoseconds>(4, milliseconds(10)));
}

TEST_F(ShellEventHandlers, DropUnknownOperations) {
    for (const int operation : {0, 7, 8, -1}) {
        Report(operation, shell, nullptr);
    }
    EXPECT_TRUE(Fake::TheAgent().events.empty());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

}  // namespace
