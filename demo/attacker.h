// The attacker's host.
#pragma once

#include <string>

namespace Host {

// The argument that makes a stagehand the attacker.
constexpr const char* attackerName = "attacker";

// Enters a new network namespace and serves the connections of all scenarios until it is killed. Prints "ready" once it
// is in the namespace, waits for a line, configures its address and prints "listening". After the next line it starts
// to send the lines of the scenarios. Returns only on failure, with the reason.
std::string ServeAsAttacker();

}  // namespace Host
