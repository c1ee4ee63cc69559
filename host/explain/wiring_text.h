// A wiring as people read it.
#pragma once

#include <string>

#include "wiring/wiring.h"

namespace Host {

// A tree of lines, each ended by a newline. Names and command lines are made printable and cut. Any thread.
std::string WiringText(const WiredProcess& process);

// The same as a graph for Graphviz's dot. Any thread.
std::string WiringDot(const WiredProcess& process);

}  // namespace Host
