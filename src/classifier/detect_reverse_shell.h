// The instant scan's judge: which of the processes that were active a moment ago are shells wired to a remote peer?
#pragma once

#include <set>
#include <string>
#include <vector>

#include "inspect/process_snapshot.h"
#include "inspect/socket_table.h"

// One pass over some processes. An object lives for one pass, on the thread that runs it.
//
// Four stages look at the shells among the processes, each for its wirings. A stage that finds a shell claims it: it
// leaves bashPids, and later stages do not see it. A finding is a pid and its socket, appended in step to two vectors
// of the caller; the third stage raises its alarms itself. In the log a finding goes by a type number:
//   1  the shell itself waits on an abnormal socket           CheckSingleprocShell
//   3  the shell reads a pipe that another process feeds       CheckSpecialShell
//   4  the shell reads a Unix stream, its parent a raw socket  CheckSpecialShell
//   5  the shell's terminal is held by a parent with an        CheckPtyShell
//      abnormal socket
class ReverseShell {
public:
    // A socket first seen before oldestSockTime (seconds of time(2)) does not count. With refreshed the pass does not
    // read the socket table again. limit is printed and decides nothing.
    ReverseShell(const std::set<std::string>& shellPaths, const std::vector<int>& activePids, long oldestSockTime,
                 bool refreshed, unsigned long limit);
    ~ReverseShell() = default;
    ReverseShell(const ReverseShell&) = delete;
    ReverseShell& operator=(const ReverseShell&) = delete;

    // Runs the pass, once for an object. Sleeps with every process, socket and descriptor that it looks at; a stop of
    // the module ends each stage at its next process.
    void GetReverseShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);

    // Fills shellInodes from shells.
    void GetShellsInodes();

    // Splits pids: shells go to bashPids, in order, and the others stay.
    void SeparateBashPids();

    // True if the process runs a shell of the host, by its path, its inode or its content.
    bool IsBashProcess(int pid) const;

    // The same of a program's resolved path; false for an empty one.
    bool IsShellProgram(const std::string& path) const;

    // Non-zero when one of the process's sockets is abnormal; sock then holds it. Otherwise sock holds what the last
    // look-up left in it.
    int GetProcessSock(const ProcInfo& proc, SocketInfo& sock);

    // Copies the pass's snapshot of pid; false, with out left as it was, if there is none.
    bool GetProcInfoInternal(int pid, ProcInfo& out) const;

    // The stages, in their order. The second takes the snapshots on which the others work and finds nothing itself.
    void CheckSingleprocShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);
    void CheckMultiprocShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);
    void CheckSpecialShell();
    void CheckPtyShell(std::vector<int>& foundPids, std::vector<SocketInfo>& foundSocks);

    // Appends a snapshot; there is no limit to them but the number of pids.
    void AddNode(const ProcInfo& proc);

    // A relay that reads an abnormal socket on its descriptor 0 and writes pipe on its descriptor 1. Non-zero on a
    // find; sock then holds the socket.
    int FindSockByPipe(int pid, unsigned long pipe, SocketInfo& sock);

    // A descendant of pid that writes pipe and has no abnormal socket: it feeds the shell on somebody's behalf.
    // Non-zero on a find; sock then holds what the last look-up left in it.
    int FindSockByPipeCurl(int pid, unsigned long pipe, SocketInfo& sock);

    // The two wirings of the third stage, each with the socket that it finds: a pipe that one of the two searches above
    // explains, or a raw socket of the parent, beside which the shell reads a Unix stream.
    bool IsFedByPipe(int pid, unsigned long pipe, SocketInfo& sock);
    bool IsFedByRawSocket(int pid, const ProcInfo& parent, SocketInfo& sock);

    // Either of the two, by the kind of channel that the shell waits on.
    bool IsFed(int pid, const ProcInfo& parent, SocketInfo& sock);

    // Non-zero if pid is a shell on a terminal whose multiplexer its parent holds beside an abnormal socket, and that
    // parent is not the ssh daemon; sock then holds the socket.
    int CheckPtmxRshell(int pid, SocketInfo& sock);

    // Parts of a search over several processes, each given by its index in procs. No stage uses them.
    //
    // Ports on which these sockets listen.
    void GetProcListenPort(const std::set<unsigned long>& sockets, std::set<unsigned long>& ports);
    // Non-zero if one of the processes has an abnormal socket that it did not accept on a port of its own.
    int GetForeignSock(const std::vector<unsigned int>& indexes, SocketInfo& sock);
    // 1 if all the processes but one at most wait on a pipe; shellPid then holds the last waiting shell, if there is
    // one.
    int GetBashProcess(const std::vector<unsigned int>& indexes, int& shellPid) const;

    std::vector<ProcInfo> procs;  // snapshots of this pass
    std::set<std::string> shells;
    std::set<unsigned long> shellInodes;
    std::vector<int> pids;      // the pass's input; after the separation, those that are no shells
    std::vector<int> bashPids;  // shells that no stage has claimed yet
    bool sockTableRefreshed;
    long minSockTime;
    unsigned long edgeNum;  // always 0; printed
    unsigned long max;
};
