#include "host/explain/socket_tests.h"

namespace Host {
namespace {

constexpr int sshPort = 22;

}  // namespace

std::string WhyNotAbnormal(unsigned long inode) {
    SocketInfo sock;
    if (!FindSocketByInode(inode, sock)) {
        return "is in none of the socket tables that the agent reads";
    }
    if (sock.remoteIp == 0) {
        return "has no peer";
    }
    if (sock.localIp == sock.remoteIp) {
        return "is a connection of this host with itself";
    }
    if (sock.localPort == sshPort) {
        return "has the local port 22, which is the ssh server's";
    }
    return "is not connected, its state is " + std::to_string(sock.state);
}

bool CheckAbnormal(const Scene& scene, unsigned long inode, SocketInfo& sock, bool& refreshed, Judgement& judgement) {
    const bool abnormal = IsAbnormalInodeByFlag(inode, sock, 0, refreshed);
    return judgement.Check(abnormal, SocketText(scene, inode) + " has a peer that is worth a look",
                           SocketText(scene, inode) + (abnormal ? "" : " " + WhyNotAbnormal(inode)));
}

void NoteSocketAge(int pid, int seconds, Judgement& judgement) {
    judgement.Note("a running agent takes the socket only while it is new, first seen at most " +
                   std::to_string(seconds) +
                   " s before the look; the age of a socket cannot be read, the process has run for " + AgeText(pid));
}

}  // namespace Host
