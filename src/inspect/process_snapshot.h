// One look at a process: what it runs, and what its descriptors are.
#pragma once

#include <set>
#include <string>

struct ProcInfo {
    int pid = 0;
    int ppid = 0;
    std::string reserved;               // nothing fills or reads it
    std::string path;                   // of the program
    std::string cmdline;                // arguments joined by blanks
    std::set<unsigned long> readPipes;  // inodes; a pipe open for both stands in both sets
    std::set<unsigned long> writePipes;
    std::set<unsigned long> sockets;  // inodes
    bool hasPtmx = false;             // holds the pty multiplexer
    bool hasPts = false;              // holds a pty slave numbered 0 to 255
};

// Fills an empty record. 1 when the process could be identified, though what is told of its descriptors may be partial
// if it ended meanwhile or the module is being stopped; 0 otherwise, which is the answer for pid 1 and for kernel
// threads. Costs at least 20 ms, 6 ms a descriptor and 0.5 ms a byte of the command line. Any thread, no lock held.
int GetProcInfo(int pid, ProcInfo& info);
