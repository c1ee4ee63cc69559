#include "wiring/host_processes.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tests/support/child_process.h"
#include "tests/support/sitting_process.h"
#include "tests/support/temporary_directory.h"
#include "wiring/connections.h"
#include "wiring/wiring.h"

namespace Host {
namespace {

const Wire* WireAt(const WiredProcess& process, int number) {
    for (const Wire& wire : process.wires) {
        for (const int each : wire.numbers) {
            if (each == number) {
                return &wire;
            }
        }
    }
    return nullptr;
}

const WiredProcess* SharerOf(const Wire& wire, int pid) {
    for (const WiredProcess& sharer : wire.sharers) {
        if (sharer.pid == pid) {
            return &sharer;
        }
    }
    return nullptr;
}

TEST(HostProcesses, RejectAProcessThatIsGoneAndAKernelThread) {
    EXPECT_FALSE(ReadHostProcess(0x7FFFFFFF));
    const int kernelThread = 2;
    if (FileText("/proc/2/comm") != "kthreadd\n") {
        GTEST_SKIP() << "this pid namespace shows no kernel threads";
    }
    EXPECT_FALSE(ReadHostProcess(kernelThread));
}

TEST(HostProcesses, HaveTheKindOfEachDescriptor) {
    const Ends pipe = MakePipe();
    const Ends pair = MakeSocketPair();
    const Ends terminal = MakeTerminal();
    const SittingProcess process({{0, pipe.first}, {1, pair.first}, {2, terminal.first}, {3, terminal.second}});
    const std::optional<HostProcess> read = ReadHostProcess(process.Pid());
    ASSERT_TRUE(read);
    ASSERT_EQ(read->descriptors.size(), 4U);
    EXPECT_EQ(read->ppid, getpid());
    EXPECT_EQ(read->descriptors[0].kind, DescriptorKind::pipe);
    EXPECT_EQ(read->descriptors[1].kind, DescriptorKind::socket);
    EXPECT_EQ(read->descriptors[2].kind, DescriptorKind::terminalMultiplexer);
    EXPECT_EQ(read->descriptors[3].kind, DescriptorKind::terminal);
    ASSERT_TRUE(read->descriptors[3].terminal);
    EXPECT_EQ(read->descriptors[2].terminal, read->descriptors[3].terminal);
    EXPECT_EQ(read->descriptors[3].link, "/dev/pts/" + std::to_string(*read->descriptors[3].terminal));
}

TEST(HostProcesses, KeepAHostileNameUnchanged) {
    const TemporaryDirectory directory;
    const std::string name = "sh\033[2J\n\xFF";
    std::filesystem::copy_file("/bin/cat", directory.Path(name));
    const ServiceTests::ChildProcess child(directory.Path(name), {"c\033at", "-"});
    const std::optional<HostProcess> process = ReadHostProcess(child.Pid());
    ASSERT_TRUE(process);
    EXPECT_EQ(process->name, name);
    EXPECT_EQ(process->cmdline, "c\033at -");
}

TEST(RealWiring, FollowsPipesAndFifos) {
    const TemporaryDirectory directory;
    Ends pipe = MakePipe();
    const std::string path = directory.Path("fifo");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    OwnedEnd fifo(open(path.c_str(), O_RDWR | O_CLOEXEC));
    const SittingProcess shell({{0, pipe.first}, {1, fifo}});
    const SittingProcess feeder({{1, pipe.second}});
    const SittingProcess reader({{0, fifo}});
    // The test itself must not share them.
    pipe.Close();
    fifo.Close();
    const auto wiring = TraceWiring(shell.Pid(), ReadHostProcesses(), ReadConnections());
    ASSERT_TRUE(wiring);
    ASSERT_NE(WireAt(*wiring, 0), nullptr);
    EXPECT_NE(SharerOf(*WireAt(*wiring, 0), feeder.Pid()), nullptr);
    EXPECT_EQ(SharerOf(*WireAt(*wiring, 0), reader.Pid()), nullptr);
    ASSERT_NE(WireAt(*wiring, 1), nullptr);
    EXPECT_EQ(WireAt(*wiring, 1)->link, path);
    EXPECT_NE(SharerOf(*WireAt(*wiring, 1), reader.Pid()), nullptr);
}

TEST(RealWiring, FollowsTwoRelaysToTheConnection) {
    LoopbackConnection line("127.0.0.2");
    Ends nearPipe = MakePipe();
    Ends farPipe = MakePipe();
    const SittingProcess shell({{0, nearPipe.first}});
    const SittingProcess near({{0, farPipe.first}, {1, nearPipe.second}});
    const SittingProcess far({{0, line.Client()}, {1, farPipe.second}});
    line.CloseClient();
    nearPipe.Close();
    farPipe.Close();
    const auto wiring = TraceWiring(shell.Pid(), ReadHostProcesses(), ReadConnections());
    ASSERT_TRUE(wiring);
    const WiredProcess* relay = SharerOf(wiring->wires.at(0), near.Pid());
    ASSERT_NE(relay, nullptr);
    ASSERT_NE(WireAt(*relay, 0), nullptr);
    const WiredProcess* last = SharerOf(*WireAt(*relay, 0), far.Pid());
    ASSERT_NE(last, nullptr);
    ASSERT_NE(WireAt(*last, 0), nullptr);
    const std::optional<Connection>& connection = WireAt(*last, 0)->connection;
    ASSERT_TRUE(connection);
    EXPECT_TRUE(connection->foreign);
    EXPECT_EQ(connection->remote, "127.0.0.2:" + std::to_string(line.ServerPort()));
}

TEST(RealWiring, FollowsSharedSocketsAndTerminals) {
    Ends pair = MakeSocketPair();
    Ends terminal = MakeTerminal();
    const SittingProcess shell({{0, terminal.second}, {3, pair.first}});
    const SittingProcess relay({{5, terminal.first}, {6, pair.first}});
    pair.Close();
    terminal.Close();
    const auto wiring = TraceWiring(shell.Pid(), ReadHostProcesses(), ReadConnections());
    ASSERT_TRUE(wiring);
    const WiredProcess* master = SharerOf(*WireAt(*wiring, 0), relay.Pid());
    ASSERT_NE(master, nullptr);
    EXPECT_TRUE(master->otherEnd);
    EXPECT_EQ(master->numbers, (std::vector<int>{5}));
    const WiredProcess* sharer = SharerOf(*WireAt(*wiring, 3), relay.Pid());
    ASSERT_NE(sharer, nullptr);
    EXPECT_FALSE(sharer->otherEnd);
    EXPECT_EQ(sharer->numbers, (std::vector<int>{6}));
}

}  // namespace
}  // namespace Host
