// The period scan's detector: does the standard input or output of a shell lead, through pipes and shared sockets, to a
// connection with a foreign host?
#pragma once

#include <climits>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "agent/net_stat.h"

// One pass over the host. An object lives for one pass, on the thread that runs it; nothing is kept from pass to pass
// but the memory of what has been reported.
//
// The graph joins processes by the pipes and sockets that they share. It is stored from both sides: a process's fds and
// ipcInodes. The search consumes ipcInodes, so that an inode in fds without an entry there has been walked.
class ReverseShellDetector {
public:
    // Marks a descriptor that holds neither pipe nor socket. Type does not tell: a default entry has that of a pipe.
    static constexpr unsigned long long INVALID_INODE = ULLONG_MAX;

    enum InodeType : int {
        INODE_PIPE = 0,  // or named pipe
        INODE_SOCKET = 1,
    };

    // What one descriptor holds.
    struct InodeAttr {
        int type = INODE_PIPE;
        unsigned long long inode = INVALID_INODE;
    };

    // One process: a shell, or a sibling of one.
    struct ProcInfomation {
        int pid = 0;
        int ppid = 0;
        std::string exePath;           // filled for a reported process
        std::string cmdline;           // filled for a candidate that gets as far as the whitelist
        std::map<int, InodeAttr> fds;  // by descriptor; pipes and sockets, and the default entries of the pass
    };

    // The processes that hold one inode.
    struct InterconnectProcs {
        std::set<std::shared_ptr<ProcInfomation>> procs;
    };

    // Runs the whole pass and reports what it finds. whitelist holds wildcard patterns over whole command lines. Sleeps
    // 50 ms after the connections, after the scan, and after every 100 scanned processes. Once begun it runs to its
    // end.
    void DetectRoutine(const std::set<std::string>& whitelist);

    // Fills foreignSockets with the connections whose peer is none of the three local addresses. True if there are any.
    bool CollectForeinSocket();

    // Walks /proc: shells become candidates with their descriptors read, all others are noted under their parent.
    void ScanProc();

    // Sorts one process by name, the base name of its program file.
    void FilterBashProcess(const std::string& name, int pid, int ppid);

    // Enters the first six descriptors of the process into the graph. More are never looked at.
    void GetProcFdInfo(std::shared_ptr<ProcInfomation> proc);

    // Brings the noted children of ppid into the graph, once.
    void CollectRelatedProc(int ppid);

    // Enters one descriptor of proc into the graph if it holds a pipe or socket. link is the zero-terminated text of
    // its link in /proc, len the length that readlink gave.
    void AddIPCInode(const char* link, unsigned int len, int fd, std::shared_ptr<ProcInfomation> proc);

    // The number behind the first bracket of a link text; 0 where no digit follows, INVALID_INODE without a bracket.
    unsigned long long ParseInode(const char* link, int len) const;

    // Walks the graph from start and reports start with the first foreign socket that it meets.
    void DeepSearchReverseShell(std::shared_ptr<ProcInfomation> start);

    // Reports that proc is a reverse shell over conn, unless the same process with the same command line has been
    // reported before.
    void SendEvent(std::shared_ptr<ProcInfomation> proc, const TavUtils::NetStat::NETSTAT& conn) const;

    // The pass's working set, by socket or pipe inode, by parent pid, or by address of the record.
    std::map<unsigned long long, TavUtils::NetStat::NETSTAT> foreignSockets;
    std::map<unsigned long long, InterconnectProcs> ipcInodes;
    std::map<int, std::set<int>> childProcs;  // children that are no shells
    std::set<std::shared_ptr<ProcInfomation>> bashProcs;
    std::set<std::shared_ptr<ProcInfomation>> pendingProcs;  // kept up to date, decides nothing
    std::set<int> relatedPids;                               // siblings already in the graph

    // Names of program files that make a process a candidate.
    static const std::set<std::string> riskyName;

private:
    void JudgeCandidate(const std::shared_ptr<ProcInfomation>& candidate, const std::set<std::string>& whitelist);
};
