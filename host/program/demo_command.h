// orlim-agent demo. The demonstration is a separate program; the agent only knows its name.
#pragma once

#include <string>
#include <vector>

namespace Host {

// Replaces this process by orlim-demo from the agent's directory, with these arguments. If that fails, writes the
// reason to standard error and returns the exit status.
int DemoCommand(const std::vector<std::string>& arguments);

}  // namespace Host
