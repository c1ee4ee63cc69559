// The module's rooms, linked into this process and made ready to be asked.
#pragma once

#include <string>

namespace Host {

// Puts the rooms into the state in which a start leaves them: the host's shells and ssh daemon, the baseline, what the
// configuration says, the locks and the run flag. Starts no task and listens to nothing. One object at a time.
class ModuleInProcess {
public:
    // configuration is what StartModule takes. Throws std::runtime_error if no shell of the host is known or the system
    // refuses a lock.
    explicit ModuleInProcess(const std::string& configuration);
    ~ModuleInProcess();
    ModuleInProcess(const ModuleInProcess&) = delete;
    ModuleInProcess& operator=(const ModuleInProcess&) = delete;
};

}  // namespace Host
