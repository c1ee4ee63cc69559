#include "host/processes/proc_net_table.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <bit>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/await_condition.h"

namespace {

using Host::Connection;
using Host::ParseProcNetTable;
using Host::ReadProcNetTable;
using Host::TableFamily;
using TestSupport::Await;

// The kernel prints the words of addresses as numbers; the texts below come from a little-endian machine.
constexpr bool textsAreNative = std::endian::native == std::endian::little;

const std::string tcpHeader =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode"
    "                                                     \n";

// A line as the kernel writes it, with the given addresses, state and inode.
std::string TcpLine(const std::string& addressesAndState, const std::string& inode) {
    return "   0: " + addressesAndState + " 00000000:00000000 00:00000000 00000000     0        0 " + inode +
           " 1 0000000000000000 100 0 0 10 0                     \n";
}

const std::string goodAddresses = "0100007F:1F90 0200007F:D431 01";
const std::string goodLine = TcpLine(goodAddresses, "54321");

std::vector<Connection> Parse(const std::string& text, TableFamily family = TableFamily::ipv4) {
    std::vector<Connection> records;
    EXPECT_LE(ParseProcNetTable(text, family, records, std::numeric_limits<size_t>::max(), nullptr), text.size());
    return records;
}

TEST(NetTable, ReadsTheFieldsOfALine) {
    if (!textsAreNative) {
        GTEST_SKIP() << "the text comes from a little-endian machine";
    }
    struct Row {
        TableFamily family;
        std::string line;
        const char* localIp;
        int localPort;
        const char* remoteIp;
        int remotePort;
        int state;
        unsigned long inode;
    };
    const Row rows[] = {
        {TableFamily::ipv4, goodLine, "127.0.0.1", 8080, "127.0.0.2", 54321, 1, 54321},
        {TableFamily::ipv4, TcpLine("00000000:0016 00000000:0000 0A", "0"), "0.0.0.0", 22, "0.0.0.0", 0, 10, 0},
        {TableFamily::ipv4, TcpLine("FFFFFFFF:FFFF ffffffff:ffff FF", "4294967295"), "255.255.255.255", 65535,
         "255.255.255.255", 65535, 255, 4294967295UL},
        {TableFamily::ipv4,
         "  123: 0100007F:0035 00000000:0000 07 00000000:00000000 00:00000000 00000000   101        0 777 2 "
         "0000000000000000 0        \n",
         "127.0.0.1", 53, "0.0.0.0", 0, 7, 777},
        {TableFamily::ipv4, "0: 0100007F:0035 00000000:0000 07 a b c d e 9\n", "127.0.0.1", 53, "0.0.0.0", 0, 7, 9},
        {TableFamily::ipv6,
         TcpLine("00000000000000000000000001000000:1F90 00000000000000000000000000000000:0000 0A", "12"), "::1", 8080,
         "::", 0, 10, 12},
        {TableFamily::ipv6,
         TcpLine("B80D0120000000000000000078563412:0001 0000000000000000FFFF00000100007F:0002 06", "13"),
         "2001:db8::1234:5678", 1, "::ffff:127.0.0.1", 2, 6, 13},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        const std::vector<Connection> records = Parse(row.line, row.family);
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].localIp, row.localIp);
        EXPECT_EQ(records[0].localPort, row.localPort);
        EXPECT_EQ(records[0].remoteIp, row.remoteIp);
        EXPECT_EQ(records[0].remotePort, row.remotePort);
        EXPECT_EQ(records[0].state, row.state);
        EXPECT_EQ(records[0].inode, row.inode);
    }
}

TEST(NetTable, SkipsMalformedLinesAndKeepsTheOthers) {
    const std::string bad[] = {
        "\n",
        "      \n",
        tcpHeader,
        std::string(1000, '\0') + "\n",
        std::string(100000, 'A') + "\n",
        "0 " + goodLine.substr(6),
        "x: " + goodLine.substr(6),
        TcpLine("0100007F:1F90 0200007F:D431 1", "1"),
        TcpLine("0100007F:1F90 0200007F:D431 001", "1"),
        TcpLine("0100007F:1F90 0200007F:D431 0G", "1"),
        TcpLine("0100007:1F90 0200007F:D431 01", "1"),
        TcpLine("0100007F0:1F90 0200007F:D431 01", "1"),
        TcpLine("0100007G:1F90 0200007F:D431 01", "1"),
        TcpLine("0x00007F:1F90 0200007F:D431 01", "1"),
        TcpLine("-100007F:1F90 0200007F:D431 01", "1"),
        TcpLine("0100007F 1F90 0200007F:D431 01", "1"),
        TcpLine("0100007F:1F901 0200007F:D431 01", "1"),
        TcpLine("0100007F:1F9 0200007F:D431 01", "1"),
        TcpLine("0100007F:-F90 0200007F:D431 01", "1"),
        TcpLine(goodAddresses, "-1"),
        TcpLine(goodAddresses, "+1"),
        TcpLine(goodAddresses, "1x"),
        TcpLine(goodAddresses, "99999999999999999999999"),
        TcpLine("00000000000000000000000001000000:1F90 00000000000000000000000000000000:0000 0A", "12"),
    };
    for (const std::string& line : bad) {
        SCOPED_TRACE(line.substr(0, 200));
        EXPECT_EQ(Parse(line).size(), 0U);
        const std::vector<Connection> records = Parse(goodLine + line + goodLine);
        ASSERT_EQ(records.size(), 2U);
        EXPECT_EQ(records[1].inode, 54321UL);
    }
}

TEST(NetTable, SkipsALineCutAnywhereBeforeItsInode) {
    const size_t inodeAt = goodLine.find(" 54321 1");
    ASSERT_NE(inodeAt, std::string::npos);
    for (size_t length = 0; length <= inodeAt + 1; ++length) {
        EXPECT_EQ(Parse(goodLine.substr(0, length) + "\n").size(), 0U) << length;
    }
}

TEST(NetTable, DoesNotConsumeAnUnfinishedLastLine) {
    for (const size_t cut : {size_t{1}, size_t{60}, goodLine.size() - 1}) {
        std::vector<Connection> records;
        const std::string text = tcpHeader + goodLine + goodLine.substr(0, cut);
        EXPECT_EQ(ParseProcNetTable(text, TableFamily::ipv4, records, 10, nullptr), text.size() - cut);
        EXPECT_EQ(records.size(), 1U);
    }
}

TEST(NetTable, SurvivesRandomDamage) {
    std::mt19937 random(4711);
    const std::string intact = tcpHeader + goodLine + goodLine + goodLine;
    for (int round = 0; round < 20000; ++round) {
        std::string text = intact;
        for (int i = 0; i < 4; ++i) {
            text[random() % text.size()] = static_cast<char>(random() % 256);
        }
        text.resize(random() % (text.size() + 1));
        EXPECT_LE(Parse(text).size(), 8U);
        Parse(text, TableFamily::ipv6);
    }
}

TEST(NetTable, StopsAtTheLimit) {
    std::string text;
    for (int i = 0; i < 10; ++i) {
        text += goodLine;
    }
    std::vector<Connection> records;
    EXPECT_EQ(ParseProcNetTable(text, TableFamily::ipv4, records, 3, nullptr), 3 * goodLine.size());
    EXPECT_EQ(records.size(), 3U);
}

TEST(NetTable, AppendsNothingOnceStopped) {
    const bool stop = true;
    std::vector<Connection> connections(2);
    ParseProcNetTable(goodLine, TableFamily::ipv4, connections, 10, &stop);
    EXPECT_EQ(connections.size(), 2U);
}

bool Read(const std::string& path, std::vector<Connection>& records, const bool* stop) {
    const auto append = [&](Connection&& connection) { records.push_back(std::move(connection)); };
    return ReadProcNetTable(path.c_str(), TableFamily::ipv4, append, stop);
}

class NetTableFile : public testing::Test {
protected:
    NetTableFile() {
        std::string pattern = testing::TempDir() + "net-table-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) {
            folder_ = pattern;
        }
    }
    ~NetTableFile() override {
        std::error_code error;
        std::filesystem::remove_all(folder_, error);
    }

    std::string Path() const { return folder_ + "/table"; }

    void Write(const std::string& text) const {
        FILE* const file = std::fopen(Path().c_str(), "we");
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
        EXPECT_EQ(std::fclose(file), 0);
    }

    std::string folder_;
};

TEST_F(NetTableFile, ReadsAHugeTableInOrder) {
    constexpr unsigned long lines = 50000;
    std::string text = tcpHeader;
    for (unsigned long i = 1; i <= lines; ++i) {
        text += TcpLine(goodAddresses, std::to_string(i));
    }
    Write(text);
    std::vector<Connection> records(1);
    ASSERT_TRUE(Read(Path(), records, nullptr));
    ASSERT_EQ(records.size(), lines + 1);
    for (unsigned long i = 1; i <= lines; ++i) {
        ASSERT_EQ(records[i].inode, i);
    }
}

TEST_F(NetTableFile, SkipsALineLongerThanItsBuffer) {
    Write(goodLine + std::string(1 << 20, 'A') + "\n" + goodLine);
    std::vector<Connection> records;
    ASSERT_TRUE(Read(Path(), records, nullptr));
    EXPECT_EQ(records.size(), 2U);
}

TEST_F(NetTableFile, SkipsTheCutLastLine) {
    Write(tcpHeader + goodLine + goodLine.substr(0, goodLine.size() - 1));
    std::vector<Connection> records;
    ASSERT_TRUE(Read(Path(), records, nullptr));
    EXPECT_EQ(records.size(), 1U);
}

TEST_F(NetTableFile, AppendsNothingFromAnUnreadableTable) {
    std::vector<Connection> records(3);
    EXPECT_FALSE(Read(Path(), records, nullptr));
    EXPECT_FALSE(Read(folder_, records, nullptr));
    EXPECT_EQ(records.size(), 3U);
}

TEST_F(NetTableFile, StopEndsAReadingInProgress) {
    ASSERT_EQ(mkfifo(Path().c_str(), 0600), 0);
    bool stop = false;
    std::atomic<bool> done = false;
    std::vector<Connection> records;
    std::thread reader([&] {
        Read(Path(), records, &stop);
        done = true;
    });
    // Open for reading too, so that a write never fails for want of a reader.
    const int pipe = open(Path().c_str(), O_RDWR | O_CLOEXEC);
    std::string lines;
    for (int i = 0; i < 100; ++i) {
        lines += goodLine;
    }
    const auto size = static_cast<ssize_t>(lines.size());
    EXPECT_EQ(write(pipe, lines.data(), lines.size()), size);
    EXPECT_TRUE(Await([&] {
        int left = 1;
        return ioctl(pipe, FIONREAD, &left) == 0 && left == 0;
    }));
    std::atomic_ref(stop).store(true);
    // Whether the reader blocks in read or not, it appends no further lines and does not wait for the end.
    EXPECT_EQ(write(pipe, lines.data(), lines.size()), size);
    EXPECT_TRUE(Await([&] { return done.load(); }));
    close(pipe);
    reader.join();
    EXPECT_LE(records.size(), 100U);
}

}  // namespace
