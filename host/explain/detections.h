// What each detection makes of a process. Each runs the module's own task once, with its own pauses, and needs a
// ModuleInProcess. A running agent has more to go by: it sees processes come and go. Here the process, its parent and
// those that share its pipes have just been active, every socket is new, and the process has started short commands.
#pragma once

#include <vector>

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

Judgement JudgeByPeriodScan(const Scene& scene);

// One judgement for each wiring that the scan knows.
std::vector<Judgement> JudgeByInstantScan(const Scene& scene);

// The process stands as the one that starts commands.
Judgement JudgeByShortCommands(const Scene& scene);

// As at the exec of the process's program.
Judgement JudgeByShellFile(const Scene& scene);

}  // namespace Host
