// Why each detection would or would not report a process.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/explain/judgement.h"

namespace Host {

// Called before each step with its name.
using ExplainProgress = std::function<void(const std::string& step)>;

// Asks the module's own code, at its own pace: some seconds. configuration is what StartModule takes. Throws
// std::runtime_error if the module would not start, or if the process has gone. On the main thread; nothing of the
// module may run in this process.
std::vector<Judgement> ExplainProcess(int pid, const std::string& configuration, const ExplainProgress& progress);

}  // namespace Host
