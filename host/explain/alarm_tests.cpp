#include "host/explain/alarm_tests.h"

#include <filesystem>

#include "alarm/command_attribution.h"
#include "frame/whitelist.h"

namespace Host {
namespace {

// As the alarm has it.
constexpr size_t mostParentDescriptors = 401;

size_t CountDescriptors(int pid) {
    size_t count = 0;
    std::error_code error;
    std::filesystem::directory_iterator entry("/proc/" + std::to_string(pid) + "/fd", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        ++count;
    }
    return count;
}

}  // namespace

void AddAlarmTests(const ProcInfo& own, const ProcInfo& parent, const SocketInfo& sock, Finder finder,
                   Judgement& judgement) {
    const bool itself = sock.localIp != 0 && sock.localIp == sock.remoteIp;
    if (itself && !(finder == Finder::byPid && sock.type == rawTable)) {
        judgement.Check(false, "", "the connection is one of this host with itself");
    }
    if (finder == Finder::byPid && sock.type == tcpTable) {
        judgement.Check(!ProduceByBusinessFile(own), "it was given neither a command nor a file to run",
                        "it was given a command or a file to run, which counts as business of the host");
    }
    judgement.Check(sock.localPort != 0 && sock.remotePort != 0,
                    "the connection has a port at both ends: " + std::to_string(sock.localPort) + " and " +
                        std::to_string(sock.remotePort),
                    "there is no connection with a port at both ends that a report could name");
    const size_t descriptors = CountDescriptors(parent.pid);
    const std::string parentText =
        "its parent (" + std::to_string(parent.pid) + ") has " + std::to_string(descriptors) + " descriptors";
    judgement.Check(
        descriptors != 0 && descriptors <= mostParentDescriptors,
        parentText + ", " + std::to_string(mostParentDescriptors) + " at most",
        parentText + ", and none or more than " + std::to_string(mostParentDescriptors) + " are no attack's");
    const bool listed = IsCmdInIgnoreList(own.cmdline) || IsCmdInIgnoreList(parent.cmdline);
    judgement.Check(!listed, "neither its command line nor its parent's begins with an entry of the whitelist",
                    "its command line or its parent's begins with an entry of the whitelist");
}

}  // namespace Host
