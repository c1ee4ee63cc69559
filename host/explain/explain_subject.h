// Whether a process can be explained at all.
#pragma once

#include <string>

namespace Host {

// Empty if the process is there and shows its program and its descriptors; otherwise one sentence on why not.
std::string WhyNotExplained(int pid);

}  // namespace Host
