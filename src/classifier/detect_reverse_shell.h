// The judge of the instant scan: finds recently active shells that are wired to a remote peer.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "inspect/process_snapshot.h"
#include "inspect/socket_table.h"

// One pass over some processes. An object lives for one pass, on the thread that runs it.
//
// Four stages examine the shells among the processes, each for its own wirings. A stage that finds a shell claims it:
// the shell is removed from bashPids, and later stages do not see it. A finding is a pid and its socket, appended at
// the same index to two vectors of the caller. The third stage raises its alarms itself. The log gives a finding's
// type:
//   1  the shell itself waits on an abnormal socket                         CheckSingleprocShell
//   3  the shell reads a pipe that another process feeds                    CheckSpecialShell
//   4  the shell reads a Unix stream, and its parent holds a raw socket     CheckSpecialShell
//   5  the shell's terminal is held by a parent with an abnormal socket     CheckPtyShell
class ReverseShell {
public:
    // Sockets first seen before oldestSockTime (seconds of time(2)) are ignored. If refreshed is true, the pass does
    // not read the socket table again. limit is only logged.
    ReverseShell(const std::set<std::string>& shellPaths, const std::vector<int>& activePids, long oldestSockTime,
                 bool refreshed, unsigned long limit);
    ~ReverseShell() = default;
    ReverseShell(const ReverseShell&) = delete;
    ReverseShell& operator=(const ReverseShell&) = delete;

    // Runs the pass; call it once per object. Sleeps for every process, socket and descriptor that it examines. When
    // the module stops, each stage ends at its next process.
    void GetReverseShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);

    // Fills shellInodes from shells.
    void GetShellsInodes();

    // Moves the shells among pids to bashPids. Keeps the order.
    void SeparateBashPids();

    // True if the process runs a shell of the host, recognized by path, inode or content.
    bool IsBashProcess(int pid) const;

    // The same for the resolved path of a program; false if it is empty.
    bool IsShellProgram(const std::string& path) const;

    // 1 if one of the process's sockets is abnormal; sock then holds the first one. Otherwise 0; sock then holds the
    // last socket that the table had, or is unchanged.
    int GetProcessSock(const ProcInfo& proc, SocketInfo& sock);

    // Copies the pass's snapshot of pid to out. If there is none, returns false and leaves out unchanged.
    bool GetProcInfoInternal(int pid, ProcInfo& out) const;

    // The stages, in order. The second one finds nothing: it takes the snapshots that the later ones use.
    void CheckSingleprocShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);
    void CheckMultiprocShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);
    void CheckSpecialShell();
    void CheckPtyShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);

    // Appends a snapshot. Only the number of pids limits how many there are.
    void AddNode(const ProcInfo& proc);

    // Looks for a relay that reads an abnormal socket on its descriptor 0 and writes pipe on its descriptor 1. 1 if
    // there is one; sock then holds the socket. Otherwise 0.
    int FindSockByPipe(int pid, unsigned long pipe, SocketInfo& sock);

    // Looks for a descendant of pid that writes pipe and has no abnormal socket. 1 if there is one; sock then holds the
    // last socket looked up, which need not be the descendant's. Otherwise 0.
    int FindSockByPipeCurl(int pid, unsigned long pipe, SocketInfo& sock);

    // The two wirings of the third stage. sock receives the socket found: by one of the two searches above for a pipe,
    // or among the parent's sockets for a Unix stream.
    bool IsFedByPipe(int pid, unsigned long pipe, SocketInfo& sock);
    bool IsFedByRawSocket(int pid, const ProcInfo& parent, SocketInfo& sock);

    // One of the two, depending on the kind of channel that the shell waits on.
    bool IsFed(int pid, const ProcInfo& parent, SocketInfo& sock);

    // 1 if the shell pid has a terminal and its parent, not the ssh daemon, holds the multiplexer and an abnormal
    // socket; sock then holds the socket. Otherwise 0.
    int CheckPtmxRshell(int pid, SocketInfo& sock);

    // Unused, in unused_group_search.cpp: parts of a search over a group of processes, each given by its index in
    // procs.
    //
    // Adds the ports on which these sockets listen.
    void GetProcListenPort(const std::set<unsigned long>& sockets, std::set<unsigned long>& ports);
    // 1 if one of the processes has an abnormal socket that it did not accept on a port of its own; sock then holds
    // it. Otherwise 0.
    int GetForeignSock(const std::vector<unsigned int>& indexes, SocketInfo& sock);
    // 1 if at most one of the processes does not wait on a pipe, otherwise 0. shellPid receives the last waiting shell,
    // if there is one.
    int GetBashProcess(const std::vector<unsigned int>& indexes, int& shellPid) const;

    std::vector<ProcInfo> procs;  // snapshots of this pass
    std::set<std::string> shells;
    std::set<unsigned long> shellInodes;
    std::vector<int> pids;      // the pass's input; after SeparateBashPids, those that are not shells
    std::vector<int> bashPids;  // shells not claimed by any stage yet
    bool sockTableRefreshed;
    long minSockTime;
    unsigned long edgeNum;  // always 0; only logged
    unsigned long max;
};
