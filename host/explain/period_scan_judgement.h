// What the period scan makes of a process.
#pragma once

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

// Runs one pass of the module's detector over the host. Needs a ModuleInProcess. Takes the pass's pauses.
Judgement JudgeByPeriodScan(const Scene& scene);

}  // namespace Host
