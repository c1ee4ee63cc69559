// Whether a process can be explained.
#pragma once

#include <string>

namespace Host {

// Empty if the process exists and its program and descriptors are readable; otherwise the reason and, where there is
// one, the remedy. Any thread.
std::string WhyNotExplained(int pid);

}  // namespace Host
