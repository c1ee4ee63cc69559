#include "host/explain/module_in_process.h"

#include <stdexcept>

#include "classifier/tmp_command_list.h"
#include "frame/module_lock.h"
#include "frame/run_state.h"
#include "frame/settings.h"
#include "module/configuration.h"
#include "module/host_shells.h"
#include "shellfile/shell_baseline.h"

namespace Host {

ModuleInProcess::ModuleInProcess(const std::string& configuration) {
    if (!LearnHostShells()) {
        throw std::runtime_error(
            "none of the listed shells exists, so the module would not start. Run orlim-agent check");
    }
    InitShellsHashSize(shellPaths);
    if (!ReadConfiguration(configuration.c_str())) {
        throw std::runtime_error("the module rejects the configuration. Run orlim-agent check with the same --config");
    }
    if (!socketTableLock.Init() || !pidMapLock.Init() || !tmpProcLock.Init()) {
        throw std::runtime_error("the system refuses a lock that the module needs");
    }
    moduleRunning.store(1);
}

ModuleInProcess::~ModuleInProcess() {
    moduleRunning.store(0);
    socketTableLock.Destroy();
    pidMapLock.Destroy();
    tmpProcLock.Destroy();
}

}  // namespace Host
