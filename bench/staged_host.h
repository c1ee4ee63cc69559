// A host of a chosen size, made of sleeping processes and connections of this process's own.
#pragma once

#include <sys/types.h>

#include <vector>

// Makes the processes and connections when built and ends them when destroyed. Meant for a pid and a network namespace
// of its own, where nothing else is to be found. Throws std::system_error where the system refuses one.
class StagedHost {
public:
    struct Size {
        int processes;    // asleep, children of this process
        int connections;  // lines of the TCP table with a foreign peer
        int shells;       // of bash asleep on a pipe, children of this process too, so that all others are its siblings
    };

    // address is one of this host that is not a loopback address.
    StagedHost(const Size& size, const char* address);
    ~StagedHost();
    StagedHost(const StagedHost&) = delete;
    StagedHost& operator=(const StagedHost&) = delete;

private:
    void AddSleepers(int count);
    void AddShells(int count);
    void AddConnections(int count, const char* address);

    std::vector<pid_t> children_;
    std::vector<int> descriptors_;
};
