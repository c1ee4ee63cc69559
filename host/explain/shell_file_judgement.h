// What shell file protection makes of a process's program.
#pragma once

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

// Hands the module the exec of the process's program once more. Needs a ModuleInProcess. Any thread.
Judgement JudgeByShellFile(const Scene& scene);

}  // namespace Host
