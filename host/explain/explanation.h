// Why each detection would or would not report a process.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/explain/judgement.h"

namespace Host {

// Called with the name of each step before it starts.
using ExplainProgress = std::function<void(const std::string& step)>;

// Runs the module's own code with its pauses, which takes a few seconds. configuration is the argument of StartModule.
// Throws std::runtime_error if the module would not start or the process has exited. Main thread only; the module must
// not run in this process.
std::vector<Judgement> ExplainProcess(int pid, const std::string& configuration, const ExplainProgress& progress);

}  // namespace Host
