// Captures the events that the module's code pushes in this process, before any sink.
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

// Runs work and returns the events that it has pushed. The event queue must not be running. Throws std::runtime_error
// if the queue does not drain within ten seconds. One call at a time.
std::vector<OwnEvent> EventsOf(const std::function<void()>& work);

}  // namespace Host
