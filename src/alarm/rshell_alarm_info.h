// The content of one reverse-shell event while it is being built.
#pragma once

#include <cstdint>
#include <string>

struct RshellAlarmInfo {
    int pid = 0;
    std::string path;
    std::string cmdline;
    int ppid = 0;
    std::string parentPath;
    std::string parentCmdline;
    std::string sourcePath;  // see FindAttackSource
    std::string inode;       // of the socket, in decimal
    uint32_t localIp = 0;    // as in in_addr.s_addr
    uint16_t localPort = 0;  // host order
    uint32_t remoteIp = 0;
    uint16_t remotePort = 0;
    std::string hash;  // SHA-256 in hexadecimal, or empty
};
