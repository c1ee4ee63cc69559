// A snapshot of a process: its program and its descriptors.
#pragma once

#include <set>
#include <string>

struct ProcInfo {
    int pid = 0;
    int ppid = 0;
    std::string reserved;               // not used
    std::string path;                   // of the program
    std::string cmdline;                // arguments joined by blanks
    std::set<unsigned long> readPipes;  // inodes; a pipe open for reading and writing is in both sets
    std::set<unsigned long> writePipes;
    std::set<unsigned long> sockets;  // inodes
    bool hasPtmx = false;             // has the pty multiplexer open
    bool hasPts = false;              // has a pty slave with a number from 0 to 255 open
};

// Fills an empty record. Returns 1 if the process could be identified; its descriptors may be incomplete if it has
// ended meanwhile or the module is being stopped. Returns 0 otherwise, as for pid 1 and kernel threads. Sleeps at least
// 20 ms, 6 ms per descriptor and 0.5 ms per byte of the command line. Any thread, with no lock held.
int GetProcInfo(int pid, ProcInfo& info);
