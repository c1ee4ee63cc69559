// The words for the parts of a wiring.
#pragma once

#include <string>

#include "wiring/wiring.h"

namespace Host {

// Such as "bash (4711)"; printable.
std::string ProcessLabel(const WiredProcess& process);

// The command line, printable and cut to about a terminal's width.
std::string CommandLabel(const WiredProcess& process);

// Such as "0,1" for the descriptors.
std::string NumbersLabel(const std::vector<int>& numbers);

// What the descriptors hold: "socket:[1234]", with the connection's two ends where it has any; printable.
std::string ObjectLabel(const Wire& wire);

}  // namespace Host
