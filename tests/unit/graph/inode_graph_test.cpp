#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "graph_fixture.h"

namespace {

using InodeGraph = GraphTest;
using Detector = ReverseShellDetector;

struct LinkCase {
    const char* link;
    bool recorded;
    int type;
    unsigned long long inode;
};

TEST_F(InodeGraph, RecordsPipesAndSocketsByTheirLinkText) {
    const LinkCase cases[] = {
        {"pipe:[1234]", true, Detector::INODE_PIPE, 1234},
        {"pipe:[123]", false, 0, 0},
        {"socket:[12]", true, Detector::INODE_SOCKET, 12},
        {"socket:[1]", false, 0, 0},
        {"socket:[18446744073709551614]", true, Detector::INODE_SOCKET, 18446744073709551614ULL},
        {"pipe:[x1234]", true, Detector::INODE_PIPE, 0},
        {"pipe:[12345", true, Detector::INODE_PIPE, 12345},
        {"pipe:[00000000000000000000000000000000000009]", true, Detector::INODE_PIPE, 0},
        {"anon_inode:[eventfd]", false, 0, 0},
        {"anon_inode:[eventpoll]", false, 0, 0},
        {"pipe:1234567", false, 0, 0},
        {"Pipe:[1234]", false, 0, 0},
        {"/tmp/no such file at all", false, 0, 0},
        {"", false, 0, 0},
    };
    for (const LinkCase& row : cases) {
        SCOPED_TRACE(row.link);
        Detector graph;
        const ProcPtr holder = MakeProc();
        graph.AddIPCInode(row.link, static_cast<unsigned int>(strlen(row.link)), 3, holder);
        if (!row.recorded) {
            EXPECT_TRUE(graph.ipcInodes.empty());
            EXPECT_TRUE(holder->fds.empty());
            continue;
        }
        ASSERT_EQ(holder->fds.count(3), 1U);
        EXPECT_EQ(holder->fds[3].type, row.type);
        EXPECT_EQ(holder->fds[3].inode, row.inode);
        ASSERT_EQ(graph.ipcInodes.count(row.inode), 1U);
        EXPECT_EQ(graph.ipcInodes[row.inode].procs, std::set<ProcPtr>{holder});
    }
}

TEST_F(InodeGraph, ReadsTheNumberAfterTheFirstBracket) {
    const struct {
        const char* link;
        int len;
        unsigned long long inode;
    } cases[] = {
        {"pipe:[77]", 9, 77},       {"pipe:[77][88]", 13, 77},    {"[5", 2, 5},
        {"pipe:77", 7, UINT64_MAX}, {"pipe:[77]", 3, UINT64_MAX}, {"pipe:[77]", 5, 77},
        {"pipe:[", 6, UINT64_MAX},  {"pipe:[x]", 8, 0},           {"", 0, UINT64_MAX},
        {"pipe:[-5]", 9, 0},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(detector.ParseInode(row.link, row.len), row.inode) << row.link << " " << row.len;
    }
}

TEST_F(InodeGraph, RecordsNamedPipesAndSocketFilesByTheirInode) {
    const TemporaryDirectory folder;
    const std::string fifo = folder.Path("fifo");
    const std::string alias = folder.Path("alias");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_EQ(link(fifo.c_str(), alias.c_str()), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string socketPath = folder.Path("socket");
    ASSERT_LT(socketPath.size(), sizeof(address.sun_path));
    strcpy(address.sun_path, socketPath.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    close(listener);
    struct stat fifoInfo {};
    struct stat socketInfo {};
    ASSERT_EQ(stat(fifo.c_str(), &fifoInfo), 0);
    ASSERT_EQ(stat(socketPath.c_str(), &socketInfo), 0);

    const ProcPtr reader = MakeProc();
    const ProcPtr writer = MakeProc();
    Hold(reader, 0, fifo);
    Hold(writer, 1, alias);
    Hold(writer, 2, socketPath);

    EXPECT_EQ(reader->fds[0].type, Detector::INODE_PIPE);
    EXPECT_EQ(reader->fds[0].inode, fifoInfo.st_ino);
    EXPECT_EQ(writer->fds[2].type, Detector::INODE_SOCKET);
    EXPECT_EQ(writer->fds[2].inode, socketInfo.st_ino);
    EXPECT_EQ(detector.ipcInodes[fifoInfo.st_ino].procs, (std::set<ProcPtr>{reader, writer}));
}

TEST_F(InodeGraph, IgnoresObjectsThatAreNeitherPipeNorSocket) {
    const TemporaryDirectory folder;
    const std::string file = folder.Write("plain file", "");
    const ProcPtr holder = MakeProc();
    for (const std::string& link : {std::string("/dev/null"), std::string("/dev/ptmx"), std::string("/"), file}) {
        Hold(holder, 0, link);
    }
    EXPECT_TRUE(holder->fds.empty());
    EXPECT_TRUE(detector.ipcInodes.empty());
}

TEST_F(InodeGraph, JudgesARelativeLinkTextByTheFileThatItNamesByChance) {
    const TemporaryDirectory folder;
    const std::filesystem::path before = std::filesystem::current_path();
    ASSERT_EQ(mkfifo(folder.Path("socket:[4711]").c_str(), 0600), 0);
    struct stat info {};
    ASSERT_EQ(stat(folder.Path("socket:[4711]").c_str(), &info), 0);
    const ProcPtr holder = MakeProc();

    std::filesystem::current_path(folder.Path());
    Hold(holder, 0, Socket(4711));
    std::filesystem::current_path(before);

    EXPECT_EQ(holder->fds[0].type, Detector::INODE_PIPE);
    EXPECT_EQ(holder->fds[0].inode, info.st_ino);
}

TEST_F(InodeGraph, HoldsAProcessOnceForTwoDescriptorsOnOnePipe) {
    const ProcPtr holder = MakeProc();
    Hold(holder, 0, Pipe(5555));
    Hold(holder, 1, Pipe(5555));
    EXPECT_EQ(holder->fds.size(), 2U);
    EXPECT_EQ(detector.ipcInodes[5555].procs.size(), 1U);
}

TEST_F(InodeGraph, JoinsTwoProcessesThatShareAPipe) {
    const ProcPtr one = MakeProc();
    const ProcPtr other = MakeProc();
    Hold(one, 0, Pipe(5555));
    Hold(other, 1, Pipe(5555));
    ASSERT_EQ(detector.ipcInodes.size(), 1U);
    EXPECT_EQ(detector.ipcInodes[5555].procs, (std::set<ProcPtr>{one, other}));
}

TEST_F(InodeGraph, RestoresAnErasedInodeForTheNewProcessOnly) {
    const ProcPtr first = MakeProc();
    const ProcPtr second = MakeProc();
    Hold(first, 0, Pipe(5555));
    detector.ipcInodes.erase(5555);
    Hold(second, 1, Pipe(5555));
    EXPECT_EQ(detector.ipcInodes[5555].procs, std::set<ProcPtr>{second});
}

TEST_F(InodeGraph, OverwritesADescriptorAddedAgain) {
    const ProcPtr holder = MakeProc();
    Hold(holder, 0, Pipe(5555));
    Hold(holder, 0, Socket(6666));
    EXPECT_EQ(holder->fds[0].inode, 6666U);
    EXPECT_EQ(holder->fds[0].type, Detector::INODE_SOCKET);
}

}  // namespace
