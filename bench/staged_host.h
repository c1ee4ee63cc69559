// A host of a given size, made of sleeping processes and of connections of this process.
#pragma once

#include <sys/types.h>

#include <vector>

// The constructor creates the processes and connections, the destructor ends them. Use it in a separate PID and network
// namespace, which has nothing else. Throws std::system_error if the system refuses a process or a connection.
class StagedHost {
public:
    struct Size {
        int processes;    // asleep, children of this process
        int connections;  // lines of the TCP table with a foreign peer
        int shells;       // bash asleep on a pipe, children of this process too: siblings of all others
    };

    // address belongs to this host and is not a loopback address.
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
