// A wiring as text or as a graph.
#pragma once

#include <string>

#include "wiring/wiring.h"

namespace Host {

// A tree of lines, each with a newline. Names and command lines are escaped and cut. Any thread.
std::string WiringText(const WiredProcess& process);

// The same as a graph for Graphviz. Any thread.
std::string WiringDot(const WiredProcess& process);

}  // namespace Host
