// What the watcher for short commands makes of a process as the parent of such commands.
#pragma once

#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

// Asks the module's verdict as if two commands typed by hand had just ended. Needs a ModuleInProcess. Takes a second.
Judgement JudgeByShortCommands(const Scene& scene);

}  // namespace Host
