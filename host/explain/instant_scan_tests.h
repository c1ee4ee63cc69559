// The single tests of the instant scan, each asked of the module. A test that fails ends what is asked of its wiring
// where the rest would have no sense.
#pragma once

#include <vector>

#include "classifier/detect_reverse_shell.h"
#include "host/explain/judgement.h"
#include "host/explain/scene.h"

namespace Host {

// Other processes that have one of the process's pipes open, at most so many.
std::vector<int> PipeSharers(const Scene& scene, size_t most);

bool ReadsPipe(const Scene& scene);
bool IsFedByRelay(const Scene& scene, ReverseShell& classifier);

// Is it a shell, and has it a parent that is looked at?
void AddCommonTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement);

// One for each wiring.
void AddSocketWaitTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement);
void AddRelayPipeTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement);
void AddDescendantPipeTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement);
void AddUnixStreamTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement);
void AddParentTerminalTests(const Scene& scene, ReverseShell& classifier, Judgement& judgement);

}  // namespace Host
