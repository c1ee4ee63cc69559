#include "inspect/socket_table_line.h"

#include <set>
#include <utility>

#include "inspect_fixture.h"
#include "table_text.h"

namespace {

using namespace std::string_literals;

class SocketTableLine : public InspectTest {
protected:
    static SocketInfo Parse(const std::string& line, int type = tcpTable) {
        const std::optional<SocketInfo> info = ParseSocketLine(line, type);
        EXPECT_TRUE(info.has_value()) << line;
        return info.value_or(SocketInfo{.type = -1});
    }

    static SocketInfo ParseIpv6(const std::string& local, const std::string& remote) {
        return Parse(TableLine{.local = local, .remote = remote}.Text(), tcp6Table);
    }
};

TEST_F(SocketTableLine, IsParsedIntoASocket) {
    const SocketInfo info = Parse(TableLine{}.Text());
    EXPECT_EQ(info.type, tcpTable);
    EXPECT_EQ(info.inode, 5000UL);
    EXPECT_EQ(info.state, tcpEstablished);
    EXPECT_EQ(info.localIp, Ipv4("10.0.0.1"));
    EXPECT_EQ(info.localPort, 40001);
    EXPECT_EQ(info.remoteIp, Ipv4("10.0.0.2"));
    EXPECT_EQ(info.remotePort, 4444);
    EXPECT_EQ(info.firstSeen, 0);
}

TEST_F(SocketTableLine, IsParsedTheSameInTablesOneToSeven) {
    for (int type = 1; type <= 7; ++type) {
        const SocketInfo info = Parse(TableLine{.state = 2}.Text(), type);
        EXPECT_EQ(info.type, type);
        EXPECT_EQ(info.state, type == 1 || type == 4 ? 2U : stateOfOtherTables) << type;
        EXPECT_EQ(info.remoteIp, Ipv4("10.0.0.2")) << type;
    }
}

TEST_F(SocketTableLine, IsParsedInTheKernelsFormat) {
    const struct {
        int type;
        const char* line;
        int localPort;
        unsigned long inode;
    } cases[] = {
        {1,
         "   0: 0100007F:1F90 0200007F:D431 01 00000000:00000000 02:000000A3 00000000  1000        0 23456 2 "
         "ffff8881072b8000 20 4 30 10 -1\n",
         8080, 23456},
        {2,
         "  223: 00000000:0044 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 35593 2 "
         "00000000fd236348 0         \n",
         68, 35593},
        {3,
         " 200: 00000000:00C8 00000000:0000 07 00000000:00000000 00:00000000 00000000     0        0 35594 2 "
         "00000000fd236348 0\n",
         200, 35594},
        {7,
         " 2804: 00000000000000000000000000000000:1E61 00000000000000000000000000000000:0000 07 00000000:00000000 "
         "00:00000000 00000000     0        0 35595 2 000000005ea4a5fd 0         \n",
         7777, 35595},
    };
    for (const auto& row : cases) {
        const SocketInfo info = Parse(row.line, row.type);
        EXPECT_EQ(info.localPort, row.localPort) << row.line;
        EXPECT_EQ(info.inode, row.inode) << row.line;
    }
}

TEST_F(SocketTableLine, IsParsedWithTheLargestValues) {
    const SocketInfo info = Parse(TableLine{.local = "255.255.255.255",
                                            .localPort = 65535,
                                            .remote = "255.255.255.254",
                                            .remotePort = 65535,
                                            .state = 255,
                                            .inode = "4294967295"}
                                      .Text());
    EXPECT_EQ(info.localIp, 0xFFFFFFFFUL);
    EXPECT_EQ(info.remoteIp, Ipv4("255.255.255.254"));
    EXPECT_EQ(info.localPort, 65535);
    EXPECT_EQ(info.state, 255U);
    EXPECT_EQ(info.inode, 4294967295UL);
}

TEST_F(SocketTableLine, IsSkippedIfItHasNoSocket) {
    const std::string good = TableLine{}.Text();
    const std::string lines[] = {
        "",
        "\n",
        "   \n",
        tableHeader,
        sctpHeader,
        TableLine{.inode = "0"}.Text(),
        TableLine{.inode = "00000"}.Text(),
        TableLine{.inode = "x"}.Text(),
        good.substr(0, good.find(" 5000")),
        good.substr(0, 20),
        "   0: 0100000A 0200000A:115C 01 0:0 0:0 0 0 0 5000\n",
        "   0: 0100000A:9C41 0200000A 01 0:0 0:0 0 0 0 5000\n",
        "   0: 0100000A:9C41 0200000A:115C zz 0:0 0:0 0 0 0 5000\n",
        "   0: zz:9C41 0200000A:115C 01 0:0 0:0 0 0 0 5000\n",
        std::string(1022, 'A') + "\n",
        std::string(1000, '\0') + "\n",
        "\xff\xfe\x01 \xff:\xff \xff:\xff \xff\n",
        "%s%n%s%n%s%n\n",
    };
    for (const std::string& line : lines) {
        for (int type = 1; type <= 8; ++type) {
            EXPECT_EQ(ParseSocketLine(line, type), std::nullopt) << type << " " << testing::PrintToString(line);
        }
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(SocketTableLine, IsParsedWithoutPauses) {
    Parse(TableLine{}.Text());
    EXPECT_TRUE(TimeRecorder::Pauses().empty());
}

TEST_F(SocketTableLine, KeepsTheUnspecifiedAddressOfIpv6AsZero) {
    const SocketInfo info = ParseIpv6("::", "::");
    EXPECT_EQ(info.localIp, 0UL);
    EXPECT_EQ(info.remoteIp, 0UL);
    EXPECT_EQ(ParseIpv6("2001:db8::1", "::").remoteIp, 0UL);
    EXPECT_NE(ParseIpv6("2001:db8::1", "::").localIp, 0UL);
    EXPECT_EQ(ParseIpv6("::", "2001:db8::1").localIp, 0UL);
}

TEST_F(SocketTableLine, KeepsTheUnspecifiedAddressAsZeroHoweverManyDigitsItHas) {
    const SocketInfo info = Parse("   0: 0:0016 00000000:0000 0A 0:0 0:0 0 0 0 5000 1\n");
    EXPECT_EQ(info.localIp, 0UL);
    EXPECT_EQ(info.remoteIp, 0UL);
}

TEST_F(SocketTableLine, ReducesAnIpv6AddressToItsLast32Bits) {
    const struct {
        const char* address;
        unsigned long word;
    } cases[] = {
        {"2001:db8::1", LastWordOf("2001:db8::1")},
        {"fe80::a:b", LastWordOf("::a:b")},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 0xFFFFFFFFUL},
        {"::1", LastWordOf("::1")},
        // Their last 32 bits are 0, but they are not the unspecified address.
        {"2001:db8::", 1},
        {"2001:db8:1:2:3:4::", 1},
        {"0:0:1::", 1},
        {"0:0:0:0:1::", 1},
        {"0:0:0:0:0:1::", 1},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(ParseIpv6(row.address, "::").localIp, row.word) << row.address;
        EXPECT_EQ(ParseIpv6("::", row.address).remoteIp, row.word) << row.address;
    }
}

TEST_F(SocketTableLine, ReadsAnIpv4AddressMappedIntoIpv6AsThatAddress) {
    const SocketInfo info = ParseIpv6("::ffff:192.0.2.7", "::ffff:198.51.100.3");
    EXPECT_EQ(info.localIp, Ipv4("192.0.2.7"));
    EXPECT_EQ(info.remoteIp, Ipv4("198.51.100.3"));
}

const char* const ipv6Addresses[] = {
    "2001:db8::1",
    "2001:db9::1",
    "fe80::1",
    "::1",
    "2001:db8::",
    "2001:db9::",
    "2001:db8:0:1::",
    "::1:0:0",
    "::1:0",
    "::ffff:10.0.0.1",
    "::10.0.0.1",
    "64:ff9b::10.0.0.1",
    "ffff::ffff:ffff",
    "::ffff:ffff",
    "::100:0",
    "::200:0",
    "2001:db8::100:0",
    "2001:db8::200:0",
    "2001:db8::2",
    "ff02::1",
    "2001:db8::0:0:1:0:0",
};

TEST_F(SocketTableLine, DistinguishesAllIpv6Addresses) {
    for (const std::string one : ipv6Addresses) {
        for (const std::string other : ipv6Addresses) {
            const SocketInfo info = ParseIpv6(one, other);
            EXPECT_EQ(info.localIp == info.remoteIp, AddressField(one) == AddressField(other)) << one << " " << other;
            EXPECT_NE(info.localIp, 0UL) << one << " " << other;
            EXPECT_NE(info.remoteIp, 0UL) << one << " " << other;
        }
    }
}

TEST_F(SocketTableLine, ChangesTheLocalAddressToDistinguishThem) {
    // An event shows the peer, so the peer's address is not changed.
    EXPECT_EQ(ParseIpv6("2001:db8::a:b", "fe80::a:b").remoteIp, LastWordOf("::a:b"));
    EXPECT_EQ(ParseIpv6("2001:db8::a:b", "fe80::a:b").localIp, 1UL);
    const std::string one =
        "   0: " + std::string(31, '0') + "1:0001 F" + std::string(30, '0') + "1:0002 01 0:0 0:0 0 0 0 5000 1\n";
    EXPECT_EQ(Parse(one, tcp6Table).remoteIp, 1UL);
    EXPECT_EQ(Parse(one, tcp6Table).localIp, 2UL);
}

TEST_F(SocketTableLine, ReducesAnAddressToTheSameOnEveryRead) {
    for (const std::string address : ipv6Addresses) {
        const SocketInfo first = ParseIpv6(address, "2001:db8::7:7");
        const SocketInfo second = ParseIpv6(address, "2001:db8::7:7");
        EXPECT_EQ(first.localIp, second.localIp) << address;
        EXPECT_EQ(first.remoteIp, second.remoteIp) << address;
    }
}

TEST_F(SocketTableLine, KeepsAddressesIn32Bits) {
    for (const std::string address : ipv6Addresses) {
        EXPECT_LE(ParseIpv6(address, "::").localIp, 0xFFFFFFFFUL) << address;
    }
}

class SctpTableLine : public SocketTableLine {
protected:
    static constexpr int sctpTable = 8;
};

TEST_F(SctpTableLine, IsParsedIntoAnAssociation) {
    const SocketInfo info = Parse(SctpLine("12345"), sctpTable);
    EXPECT_EQ(info.type, sctpTable);
    EXPECT_EQ(info.inode, 12345UL);
    EXPECT_EQ(info.state, stateOfOtherTables);
    EXPECT_EQ(info.localIp, Ipv4("10.0.0.1"));
    EXPECT_EQ(info.localPort, 40000);
    EXPECT_EQ(info.remoteIp, Ipv4("10.0.0.9")) << "the address marked as primary";
    EXPECT_EQ(info.remotePort, 5000);
    EXPECT_EQ(info.firstSeen, 0);
    EXPECT_TRUE(Log().empty());
}

TEST_F(SctpTableLine, HasTheFirstLocalAndTheMarkedRemoteAddress) {
    const SocketInfo info = Parse(SctpLine("12345", "10.0.0.1 10.0.0.2 <-> 10.0.0.8 *10.0.0.9"), sctpTable);
    EXPECT_EQ(info.localIp, Ipv4("10.0.0.1"));
    EXPECT_EQ(info.remoteIp, Ipv4("10.0.0.9"));
}

TEST_F(SctpTableLine, IsSkippedWithALogLineIfAnAddressIsNotIpv4) {
    for (const char* addresses : {"2001:db8::1 <-> *10.0.0.9", "10.0.0.1 <-> *2001:db8::9", "*10.0.0.1 <-> *10.0.0.9",
                                  "10.0.0.256 <-> *10.0.0.9", "10.0.0.1 <-> *\xff\x01", "x <-> *y"}) {
        Fake::ResetAgent();
        EXPECT_EQ(ParseSocketLine(SctpLine("12345", addresses), sctpTable), std::nullopt) << addresses;
        ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "get hex addr failed.\n");
    }
}

TEST_F(SctpTableLine, IsSkippedIfItHasNoAssociation) {
    const std::string lines[] = {
        sctpHeader,
        SctpLine("0"),
        SctpLine("x"),
        SctpLine("12345", "10.0.0.1 <-> 10.0.0.9"),
        SctpLine("12345", "10.0.0.1 <-> *10.0.0.9", "x 5000"),
        SctpLine("12345", "10.0.0.1 <-> *10.0.0.9", "40000 x"),
        SctpLine("12345").substr(0, 100),
        "1 2 3 4 5 6 7 8 9 10 12345 1 2 10.0.0.1*\n",
    };
    for (const std::string& line : lines) {
        EXPECT_EQ(ParseSocketLine(line, sctpTable), std::nullopt) << line;
    }
    EXPECT_TRUE(Log().empty());
}

TEST_F(SctpTableLine, MayBeAsLongAsTheBuffer) {
    EXPECT_EQ(ParseSocketLine("1 2 3 4 5 6 7 8 9 10 5 1 2 " + std::string(990, '7') + " *1", sctpTable), std::nullopt);
    ExpectLogged(LOG_LEVEL_DETAIL, "detect_shell", "get hex addr failed.\n");
}

TEST(SockState, IsSetForTcpOnly) {
    for (int type = 0; type <= 9; ++type) {
        SocketInfo info;
        ModifySockStateByType(info, type, 7);
        EXPECT_EQ(info.type, type);
        EXPECT_EQ(info.state, type == tcpTable || type == tcp6Table ? 7U : 11U) << type;
    }
}

}  // namespace
