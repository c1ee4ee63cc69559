#include "demo/finding.h"

#include <gtest/gtest.h>

namespace Host {
namespace {

TEST(Finding, ReverseShellWithInodeIsFromTheInstantScan) {
    const std::optional<Finding> finding = ParseFinding(
        R"({"eventType":"reverse-shell","eventTime":"t","eventContent":{"pid":7,"path":"/usr/bin/bash","ppid":6,)"
        R"("inode":"12","localIp":"198.18.0.1","localPort":5,"remoteIp":"198.18.0.2","remotePort":4441}})");
    ASSERT_TRUE(finding);
    EXPECT_EQ(finding->detection, Detection::instantScan);
    EXPECT_EQ(finding->pid, 7);
    EXPECT_EQ(finding->ppid, 6);
    EXPECT_EQ(finding->path, "/usr/bin/bash");
    EXPECT_EQ(finding->detail, "process 7 /usr/bin/bash, connection 198.18.0.1:5 - 198.18.0.2:4441");
}

TEST(Finding, ReverseShellWithoutInodeIsFromThePeriodScan) {
    const std::optional<Finding> finding =
        ParseFinding(R"({"eventType":"reverse-shell","eventContent":{"pid":7,"ppid":6}})");
    ASSERT_TRUE(finding);
    EXPECT_EQ(finding->detection, Detection::periodScan);
}

TEST(Finding, ChangeOfAShellHasFileAndOperation) {
    const struct {
        const char* content;
        const char* operation;
        const char* relatedPath;
        const char* detail;
    } rows[] = {
        {R"({"path":"/s","operationType":"move","relatedPath":"/t"})", "move", "/t", "move of /s -> /t"},
        {R"({"path":"/s","operationType":"modify"})", "modify", "", "modify of /s"},
        {R"({"path":"/s","operationType":"attribute","attribute":[{"type":"owner","from":"root","to":"daemon"}]})",
         "attribute", "", "attribute of /s: owner root -> daemon"},
    };
    for (const auto& row : rows) {
        const std::optional<Finding> finding =
            ParseFinding(std::string(R"({"eventType":"abnormal-shell","eventContent":)") + row.content + "}");
        ASSERT_TRUE(finding) << row.content;
        EXPECT_EQ(finding->detection, Detection::shellFileProtection);
        EXPECT_EQ(finding->operation, row.operation);
        EXPECT_EQ(finding->path, "/s");
        EXPECT_EQ(finding->relatedPath, row.relatedPath);
        EXPECT_EQ(finding->detail, row.detail);
        EXPECT_EQ(finding->pid, 0);
    }
}

TEST(Finding, RefusesTextThatIsNotAnEvent) {
    for (const char* text :
         {"", "{", "[]", "1", R"({"eventType":"reverse-shell"})", R"({"eventType":"reverse-shell","eventContent":[]})",
          R"({"eventType":"other","eventContent":{}})", R"({"eventType":1,"eventContent":{}})"}) {
        EXPECT_FALSE(ParseFinding(text)) << text;
    }
}

TEST(Finding, IgnoresMembersOfTheWrongType) {
    const std::optional<Finding> finding = ParseFinding(
        R"({"eventType":"abnormal-shell","eventContent":{"pid":"7","path":3,"operationType":[],"attribute":[]}})");
    ASSERT_TRUE(finding);
    EXPECT_EQ(finding->path, "");
    EXPECT_EQ(finding->operation, "");
}

}  // namespace
}  // namespace Host
