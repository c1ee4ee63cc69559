// The module's code, linked into this process and initialised.
#pragma once

#include <string>

namespace Host {

// Initialises the module as a start does: the host's shells and ssh daemon, the baseline, the configuration, the locks
// and the run flag. Starts no task and subscribes to no events. One object at a time.
class ModuleInProcess {
public:
    // configuration is the argument of StartModule. Throws std::runtime_error if no listed shell exists, the
    // configuration is invalid or the system refuses a lock.
    explicit ModuleInProcess(const std::string& configuration);
    ~ModuleInProcess();
    ModuleInProcess(const ModuleInProcess&) = delete;
    ModuleInProcess& operator=(const ModuleInProcess&) = delete;
};

}  // namespace Host
