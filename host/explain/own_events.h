// What the module's code reports when it runs in this process, caught before any sink.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace Host {

struct OwnEvent {
    std::string type;        // "reverse-shell" or "abnormal-shell"
    int pid = 0;             // of a reverse shell, 0 otherwise
    std::string connection;  // of a reverse shell: ADDRESS:PORT - ADDRESS:PORT
    std::string path;        // of the shell
};

// Runs work and returns the events that it has pushed. The process must not have started its queue for sinks. Throws
// std::runtime_error if the queue does not empty within seconds. One call at a time.
std::vector<OwnEvent> EventsOf(const std::function<void()>& work);

}  // namespace Host
