// What the instant scan makes of a process.
#pragma once

#include <vector>

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

// One judgement for each wiring that the scan knows. Asks the module's classifier as if the process, its parent and
// those that share its pipes had just been active, and sockets of any age counted. Needs a ModuleInProcess. Takes the
// pauses of a pass over these processes, seconds.
std::vector<Judgement> JudgeByInstantScan(const Scene& scene);

}  // namespace Host
