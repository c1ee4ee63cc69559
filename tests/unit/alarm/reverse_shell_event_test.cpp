#include "alarm/reverse_shell_event.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "tests/fakes/fake_agent.h"
#include "tests/support/event_json.h"

namespace {

using namespace std::string_literals;

class ReverseShellEvent : public testing::Test {
protected:
    ReverseShellEvent() { Fake::ResetAgent(); }

    static RshellAlarmInfo Record() {
        return {.pid = 300,
                .path = "/usr/bin/bash",
                .cmdline = "(/tmp) bash -i",
                .ppid = 200,
                .parentPath = "/opt/relay",
                .parentCmdline = "(/) relay",
                .sourcePath = "/opt/relay",
                .inode = "51",
                .localIp = inet_addr("198.51.100.3"),
                .localPort = 40001,
                .remoteIp = inet_addr("192.0.2.7"),
                .remotePort = 4444,
                .hash = "0123abcd"};
    }
};

TEST_F(ReverseShellEvent, HoldsItsKeysInOrder) {
    EXPECT_EQ(ReverseShellEventText(Record()),
              R"({"eventType":"reverse-shell","eventTime":"2024-02-03T04:05:06.789Z","eventContent":{)"
              R"("pid":300,"path":"/usr/bin/bash","ppid":200,"parentPath":"/opt/relay",)"
              R"("cmdline":"(/tmp) bash -i","parentCmdline":"(/) relay","inode":"51","sourcePath":"/opt/relay",)"
              R"("hash":"0123abcd","localIp":"198.51.100.3","localPort":40001,)"
              R"("remoteIp":"192.0.2.7","remotePort":4444}})");
}

TEST_F(ReverseShellEvent, HasEveryKeyForAnEmptyRecord) {
    EXPECT_EQ(EventJson::Parse(ReverseShellEventText({}))["eventContent"].Dump(),
              R"({"pid":0,"path":"","ppid":0,"parentPath":"","cmdline":"","parentCmdline":"","inode":"",)"
              R"("sourcePath":"","hash":"","localIp":"0.0.0.0","localPort":0,"remoteIp":"0.0.0.0","remotePort":0})");
}

TEST_F(ReverseShellEvent, WritesTheLargestNumbers) {
    RshellAlarmInfo record = Record();
    record.localPort = 65535;
    record.remotePort = 65535;
    record.localIp = 0xFFFFFFFF;
    record.inode = "18446744073709551615";
    const EventJson content = EventJson::Parse(ReverseShellEventText(record))["eventContent"];
    EXPECT_EQ(content["localPort"], 65535);
    EXPECT_EQ(content["remotePort"], 65535);
    EXPECT_EQ(content["localIp"], "255.255.255.255");
    EXPECT_EQ(content["inode"], "18446744073709551615");
}

TEST_F(ReverseShellEvent, ContainsTheCurrentTime) {
    Fake::TheAgent().utc = "2031-12-31T23:59:59.999Z";
    EXPECT_EQ(EventJson::Parse(ReverseShellEventText(Record()))["eventTime"], "2031-12-31T23:59:59.999Z");
}

TEST_F(ReverseShellEvent, IsOneValidLineForHostileTexts) {
    const std::string hostile =
        "bash \"\\\n\r\t\x01\x1b[31m \xff\xfe\xc3 \0'\"}],\"pid\":1,"s + std::string(100000, 'A') + "\n\xf0\x9f\x92";
    RshellAlarmInfo record = Record();
    record.path = record.cmdline = record.parentPath = record.parentCmdline = record.sourcePath = hostile;
    const std::string text = ReverseShellEventText(record);
    EXPECT_EQ(text.find_first_of("\n\r\0"s), std::string::npos);
    const EventJson content = EventJson::Parse(text)["eventContent"];
    EXPECT_EQ(content.Size(), 13U);
    EXPECT_EQ(content["pid"], 300);
    const std::string kept = content["cmdline"].Text();
    EXPECT_TRUE(kept.starts_with("bash \"\\\n\r\t\x01\x1b[31m \uFFFD\uFFFD\uFFFD "));
    EXPECT_NE(kept.find(std::string(100000, 'A')), std::string::npos) << "nothing is truncated";
    for (const char* key : {"path", "parentPath", "parentCmdline", "sourcePath"}) {
        EXPECT_EQ(content[key], kept) << key;
    }
}

}  // namespace
