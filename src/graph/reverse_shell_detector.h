// The detector of the period scan: finds shells whose standard input or output leads, through pipes and shared sockets,
// to a connection with a foreign host.
#pragma once

#include <climits>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "agent/net_stat.h"

// One pass over the host. An object lives for one pass, on the thread that runs it. Only the list of reported shells
// outlives it.
//
// The graph joins processes by the pipes and sockets that they share. It is stored from both sides: by process in fds,
// by inode in ipcInodes. The search erases entries of ipcInodes, so an inode of fds without an entry there has been
// walked.
class ReverseShellDetector {
public:
    // Marks a descriptor without pipe or socket. The type does not: a default entry has that of a pipe.
    static constexpr unsigned long long INVALID_INODE = ULLONG_MAX;

    enum InodeType : int {
        INODE_PIPE = 0,  // or named pipe
        INODE_SOCKET = 1,
    };

    // The object of one descriptor.
    struct InodeAttr {
        int type = INODE_PIPE;
        unsigned long long inode = INVALID_INODE;
    };

    // One process: a shell, or a sibling of one.
    struct ProcInfomation {
        int pid;
        int ppid;
        std::string exePath;           // filled for a reported process
        std::string cmdline;           // filled for a candidate that is compared with the whitelist
        std::map<int, InodeAttr> fds;  // by descriptor: pipes, sockets, and default entries for 0 and 1
    };

    // The processes that hold one inode.
    struct InterconnectProcs {
        std::set<std::shared_ptr<ProcInfomation>> procs;
    };

    // Runs the whole pass and reports each reverse shell. whitelist holds wildcard patterns for whole command lines.
    // Sleeps for 50 ms after reading the connections, after the scan, and per 100 scanned processes. A stop of the
    // module does not end it.
    void DetectRoutine(const std::set<std::string>& whitelist);

    // Fills foreignSockets with the connections whose peer is none of the three local addresses. True if there are any.
    bool CollectForeinSocket();

    // Walks /proc. Shells become candidates, and their descriptors are read. Other pids are stored under their
    // parent's.
    void ScanProc();

    // Stores one process by name, the base name of its program file.
    void FilterBashProcess(const std::string& name, int pid, int ppid);

    // Adds the first six descriptors of the process to the graph. Further ones are never read.
    void GetProcFdInfo(std::shared_ptr<ProcInfomation> proc);

    // Adds the stored children of ppid to the graph, once.
    void CollectRelatedProc(int ppid);

    // Adds one descriptor of proc to the graph if it holds a pipe or socket. link is the zero-terminated text of its
    // link in /proc, len the length that readlink returned.
    void AddIPCInode(const char* link, unsigned int len, int fd, std::shared_ptr<ProcInfomation> proc);

    // The number after the first bracket of a link text. 0 if no digit follows, INVALID_INODE without a bracket.
    unsigned long long ParseInode(const char* link, int len) const;

    // Walks the graph from start and reports start with the first foreign socket reached. Depth first.
    void DeepSearchReverseShell(std::shared_ptr<ProcInfomation> start);

    // Reports proc as a reverse shell over conn, unless the same pid with the same command line was reported before.
    void SendEvent(std::shared_ptr<ProcInfomation> proc, const TavUtils::NetStat::NETSTAT& conn) const;

    // Working set of the pass, by socket or pipe inode, by parent pid, or by address of the record.
    std::map<unsigned long long, TavUtils::NetStat::NETSTAT> foreignSockets;
    std::map<unsigned long long, InterconnectProcs> ipcInodes;
    std::map<int, std::set<int>> childProcs;  // children that are not shells
    std::set<std::shared_ptr<ProcInfomation>> bashProcs;
    std::set<std::shared_ptr<ProcInfomation>> pendingProcs;  // maintained, decides nothing
    std::set<int> relatedPids;                               // siblings already in the graph

    // Names of program files that make a process a candidate.
    static const std::set<std::string> riskyName;

private:
    // Adds a process to the graph, with its first descriptors.
    std::shared_ptr<ProcInfomation> AddProcess(int pid, int ppid);

    void JudgeCandidate(const std::shared_ptr<ProcInfomation>& candidate, const std::set<std::string>& whitelist);
};
