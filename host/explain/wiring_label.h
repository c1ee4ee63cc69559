// Labels for the parts of a wiring.
#pragma once

#include <string>

#include "wiring/wiring.h"

namespace Host {

// For example "bash (4711)"; printable.
std::string ProcessLabel(const WiredProcess& process);

// The command line, printable and cut to about the width of a terminal.
std::string CommandLabel(const WiredProcess& process);

// The descriptor numbers, for example "0,1".
std::string NumbersLabel(const std::vector<int>& numbers);

// The object behind the descriptors, for example "socket:[1234]", with the two ends of a connection; printable.
std::string ObjectLabel(const Wire& wire);

}  // namespace Host
