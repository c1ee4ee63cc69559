#include "host/explain/wiring_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/wiring_fixture.h"

namespace Host {
namespace {

using testing::HasSubstr;
using testing::Not;

WiredProcess RelayedShell() {
    Processes processes;
    AddProcess(processes, 10, "bash", {Pipe(0, 1), File(1, "/dev/null"), File(2, "/dev/null")});
    AddProcess(processes, 11, "relay", {Socket(0, 9), Pipe(1, 1), Pipe(2, 4)});
    AddProcess(processes, 12, "logger", {Pipe(0, 4), Pipe(1, 1)});
    return *TraceWiring(10, processes, {{9, Foreign()}});
}

TEST(WiringText, DrawsATreeFromTheShellToTheConnection) {
    EXPECT_EQ(WiringText(RelayedShell()),
              "bash (10)  bash -x\n"
              "├─ 0  pipe:[1]\n"
              "│  ├─ also 1 of relay (11)  relay -x\n"
              "│  │  ├─ 0  socket:[9]  tcp 10.0.0.1:5 - 10.0.0.2:4444  FOREIGN\n"
              "│  │  └─ 2  pipe:[4]\n"
              "│  │     └─ also 0 of logger (12)  logger -x\n"
              "│  │        └─ 1  pipe:[1], shared, see process 10\n"
              "│  └─ also 1 of logger (12), see above\n"
              "└─ 1,2  /dev/null\n");
}

TEST(WiringDot, JoinsEveryHolderToItsObjectOnce) {
    EXPECT_EQ(WiringDot(RelayedShell()),
              "graph wiring {\n"
              "  rankdir=LR;\n"
              "  p10 [shape=box,label=\"bash (10)\"];\n"
              "  o0 [label=\"pipe:[1]\"];\n"
              "  p10 -- o0 [label=\"0\"];\n"
              "  p11 [shape=box,label=\"relay (11)\"];\n"
              "  o1 [label=\"socket:[9]  tcp 10.0.0.1:5 - 10.0.0.2:4444  FOREIGN\",color=red];\n"
              "  p11 -- o1 [label=\"0\"];\n"
              "  o2 [label=\"pipe:[4]\"];\n"
              "  p11 -- o2 [label=\"2\"];\n"
              "  p12 [shape=box,label=\"logger (12)\"];\n"
              "  p12 -- o0 [label=\"1\"];\n"
              "  p12 -- o2 [label=\"0\"];\n"
              "  p11 -- o0 [label=\"1\"];\n"
              "  o3 [label=\"/dev/null\"];\n"
              "  p10 -- o3 [label=\"1,2\"];\n"
              "}\n");
}

TEST(WiringDot, CountsTheSharersThatItOmits) {
    Processes processes;
    for (int pid = 10; pid < 30; ++pid) {
        AddProcess(processes, pid, "idle", {Pipe(0, 1)});
    }
    EXPECT_THAT(WiringDot(*TraceWiring(10, processes, {})), HasSubstr("label=\"and 11 more\""));
}

// For names, arguments and link texts: bytes that would control a terminal or end a quoted string.
const std::string hostile = "a\"];x\\\033[2J\n\r\xC2\x9B\xFF\x7F\t" + std::string(5000, 'y');

WiredProcess HostileProcess() {
    Processes processes;
    AddProcess(processes, 10, hostile, {Pipe(0, 1), File(1, hostile)});
    AddProcess(processes, 11, hostile, {Pipe(1, 1)});
    return *TraceWiring(10, processes, {});
}

bool HasControlBytes(const std::string& text) {
    return text.find("\xC2\x9B") != std::string::npos || text.find('\xFF') != std::string::npos ||
           std::any_of(text.begin(), text.end(), [](char each) {
               return (static_cast<unsigned char>(each) < 0x20 && each != '\n') || each == 0x7F;
           });
}

TEST(WiringText, EscapesAndCutsHostileBytes) {
    const std::string text = WiringText(HostileProcess());
    EXPECT_FALSE(HasControlBytes(text)) << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4) << text;
    EXPECT_LT(text.size(), 1000U);
    EXPECT_THAT(text, HasSubstr("\\x1B[2J\\n\\r\\xC2\\x9B\\xFF\\x7F\\t"));
}

TEST(WiringDot, KeepsHostileBytesInsideTheirQuotes) {
    const std::string dot = WiringDot(HostileProcess());
    EXPECT_FALSE(HasControlBytes(dot)) << dot;
    EXPECT_THAT(dot, HasSubstr("label=\"a\\\"];x\\\\\\\\x1B[2J"));
    EXPECT_THAT(dot, Not(HasSubstr("\"a\"];")));
}

}  // namespace
}  // namespace Host
