// The demonstration: a program of its own, of which the agent holds nothing but the name.
#pragma once

#include <string>
#include <vector>

namespace Host {

// Becomes orlim-demo, which stands in the agent's directory, with these arguments. Returns an exit status only if that
// program cannot be started, which is explained on standard error.
int DemoCommand(const std::vector<std::string>& arguments);

}  // namespace Host
