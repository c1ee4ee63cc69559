// The attacker's host.
#pragma once

#include <string>

namespace Host {

// The argument that makes a stagehand the attacker.
constexpr const char* attackerName = "attacker";

// Enters a network namespace of its own and serves the wirings' connections until it is killed. It says "ready" when it
// is there, waits for a line, takes its address and says "listening"; with the next line it begins to send what the
// wirings' plans say. Returns only on failure, with the reason.
std::string ServeAsAttacker();

}  // namespace Host
