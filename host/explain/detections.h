// The verdict of each detection on a process. Each function runs the module's own task once, with its pauses, and
// requires a ModuleInProcess. Unlike a running agent, it has not seen processes start and end. It therefore assumes
// that the process, its parent and the holders of its pipes have just been active, that every socket is new, and that
// the process has started short commands.
#pragma once

#include <vector>

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

Judgement JudgeByPeriodScan(const Scene& scene);

// One judgement per wiring that the scan knows.
std::vector<Judgement> JudgeByInstantScan(const Scene& scene);

// Judges the process as one that starts short commands.
Judgement JudgeByShortCommands(const Scene& scene);

// Judges the process as if it had just executed its program.
Judgement JudgeByShellFile(const Scene& scene);

}  // namespace Host
