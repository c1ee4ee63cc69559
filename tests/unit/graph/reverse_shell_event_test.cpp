#include "graph_fixture.h"
#include "tests/support/event_json.h"

namespace {

using ReverseShellEvent = GraphTest;
using ReverseShellEventOnTree = ProcGraphTest;

TEST_F(ReverseShellEventOnTree, HoldsItsKeysInOrder) {
    proc->Add({.pid = 20001, .ppid = 20000, .exe = "/usr/bin/bash", .cmdline = "unread"});
    proc->Add({.pid = 20000, .ppid = 1, .exe = "/usr/bin/nc", .cmdline = std::string("nc\0-l\0", 6)});
    const auto shell = std::make_shared<ReverseShellDetector::ProcInfomation>();
    shell->pid = 20001;
    shell->ppid = 20000;
    shell->cmdline = "bash -i";
    detector.SendEvent(shell, Connection(5000));
    EXPECT_EQ(Fake::TheAgent().events,
              std::vector<std::string>{
                  R"({"eventType":"reverse-shell","eventTime":"2024-02-03T04:05:06.789Z","eventContent":{)"
                  R"("pid":20001,"path":"/usr/bin/bash","ppid":20000,"parentPath":"/usr/bin/nc",)"
                  R"("cmdline":"bash -i","parentCmdline":"nc -l",)"
                  R"("localIp":"198.51.100.3","localPort":40001,"remoteIp":"192.0.2.7","remotePort":4444}})"});
    EXPECT_EQ(shell->exePath, "/usr/bin/bash");
    EXPECT_EQ(Fake::TheAgent().LogTexts(LOG_LEVEL_DETAIL),
              std::vector<std::string>{"Checkout reverse shell.[bashPid=20001, localIp=198.51.100.3, localPort=40001, "
                                       "remoteIp=192.0.2.7, remotePort=4444]"});
}

TEST_F(ReverseShellEvent, IsOneValidLineForAHostileCommandLine) {
    const ProcPtr shell = MakeProc();
    shell->cmdline = std::string("bash \"\\\n\r\x01\x1b[31m \xff\xfe\xc3") + std::string(100000, 'A');
    detector.SendEvent(shell, Connection(5000));
    ASSERT_EQ(Fake::TheAgent().events.size(), 1U);
    const std::string& event = Fake::TheAgent().events[0];
    EXPECT_EQ(event.find('\n'), std::string::npos);
    const auto content = EventJson::Parse(event)["eventContent"];
    EXPECT_EQ(content["cmdline"], "bash \"\\\n\r\x01\x1b[31m \uFFFD\uFFFD\uFFFD" + std::string(100000, 'A'));
}

TEST_F(ReverseShellEventOnTree, HasEmptyTextsForProcessesThatAreGone) {
    const ProcPtr shell = MakeProc(29999);
    detector.SendEvent(shell, Connection(5000));
    const auto content = EventJson::Parse(Fake::TheAgent().events.at(0))["eventContent"];
    EXPECT_EQ(content["path"], "");
    EXPECT_EQ(content["parentPath"], "");
    EXPECT_EQ(content["parentCmdline"], "");
}

TEST_F(ReverseShellEvent, IsNotRepeatedAndTheRepeatIsNotLogged) {
    const ProcPtr shell = MakeProc();
    detector.SendEvent(shell, Connection(5000));
    const size_t lines = Fake::TheAgent().log.size();
    detector.SendEvent(shell, Connection(6000, "192.0.2.99"));
    EXPECT_EQ(Fake::TheAgent().events.size(), 1U);
    EXPECT_EQ(Fake::TheAgent().log.size(), lines);
}

TEST_F(ReverseShellEvent, IsSentAgainForAnotherCommandLineOrPid) {
    const ProcPtr shell = MakeProc();
    detector.SendEvent(shell, Connection(5000));
    shell->cmdline = "bash -x";
    detector.SendEvent(shell, Connection(5000));
    const ProcPtr other = MakeProc();
    detector.SendEvent(other, Connection(5000));
    EXPECT_EQ(Fake::TheAgent().events.size(), 3U);
}

TEST_F(ReverseShellEvent, IsRememberedForTheLast1000Shells) {
    const ProcPtr first = MakeProc();
    detector.SendEvent(first, Connection(5000));
    for (int i = 0; i < 999; ++i) {
        detector.SendEvent(MakeProc(), Connection(5000));
    }
    ASSERT_EQ(Fake::TheAgent().events.size(), 1000U);
    detector.SendEvent(first, Connection(5000));
    ASSERT_EQ(Fake::TheAgent().events.size(), 1000U) << "1000 shells fit";

    detector.SendEvent(MakeProc(), Connection(5000));
    detector.SendEvent(first, Connection(5000));
    EXPECT_EQ(Fake::TheAgent().events.size(), 1002U) << "the 1001st evicts the first";
}

}  // namespace
