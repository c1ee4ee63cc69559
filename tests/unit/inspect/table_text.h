// Lines of /proc/net in the kernel's format.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

// The number that the kernel's tables print for an IPv4 address.
inline unsigned long Ipv4(const std::string& text) {
    in_addr address{};
    EXPECT_EQ(inet_pton(AF_INET, text.c_str(), &address), 1) << text;
    return address.s_addr;
}

inline std::string HexWord(uint32_t word) {
    char text[16];
    std::snprintf(text, sizeof(text), "%08X", word);
    return text;
}

// The address in the tables' format: one word, or four for IPv6, each in the machine's byte order.
inline std::string AddressField(const std::string& text) {
    if (text.find(':') == std::string::npos) {
        return HexWord(static_cast<uint32_t>(Ipv4(text)));
    }
    in6_addr address{};
    EXPECT_EQ(inet_pton(AF_INET6, text.c_str(), &address), 1) << text;
    uint32_t words[4];
    std::memcpy(words, &address, sizeof(words));
    return HexWord(words[0]) + HexWord(words[1]) + HexWord(words[2]) + HexWord(words[3]);
}

// The last word of an IPv6 address in the table's format.
inline unsigned long LastWordOf(const std::string& text) {
    return std::stoul(AddressField(text).substr(24), nullptr, 16);
}

struct TableLine {
    std::string local = "10.0.0.1";
    int localPort = 40001;
    std::string remote = "10.0.0.2";
    int remotePort = 4444;
    unsigned int state = 1;
    std::string inode = "5000";
    std::string queues = "00000000:00000000";  // unsent and unread bytes

    std::string Text() const {
        char ports[2][8];
        std::snprintf(ports[0], sizeof(ports[0]), "%04X", static_cast<unsigned int>(localPort));
        std::snprintf(ports[1], sizeof(ports[1]), "%04X", static_cast<unsigned int>(remotePort));
        char stateText[16];
        std::snprintf(stateText, sizeof(stateText), "%02X", state);
        return "   0: " + AddressField(local) + ":" + ports[0] + " " + AddressField(remote) + ":" + ports[1] + " " +
               stateText + " " + queues + " 00:00000000 00000000  1000        0 " + inode +
               " 1 0000000000000000 100 0 0 10 0\n";
    }
};

inline const std::string tableHeader =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n";

inline const std::string sctpHeader =
    " ASSOC     SOCK   STY SST ST HBKT ASSOC-ID TX_QUEUE RX_QUEUE UID INODE LPORT RPORT LADDRS <-> RADDRS HBINT INS "
    "OUTS MAXRT T1X T2X RTXC wmema wmemq sndbuf rcvbuf\n";

inline std::string SctpLine(const std::string& inode, const std::string& addresses = "10.0.0.1 <-> *10.0.0.9 10.0.0.10",
                            const std::string& ports = "40000 5000") {
    return "ffff8800b57f0000 ffff8800b4e2a000 2   1   3  0       7        0        0    0 " + inode + " " + ports +
           "  " + addresses + " \t    7500    10    10   10    0    0        0        1        0   212992   212992\n";
}
