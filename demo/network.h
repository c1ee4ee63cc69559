// Creates network namespaces and connects two of them with a pair of interfaces.
#pragma once

#include <cstdint>
#include <string>

namespace Host {

// The addresses of the two hosts, from the range reserved for benchmarks (RFC 2544).
constexpr const char* hostAddress = "198.18.0.1";
constexpr const char* attackerAddress = "198.18.0.2";

constexpr const char* hostInterface = "demo0";
constexpr const char* attackerInterface = "demo1";

// Moves the calling thread into a new network namespace without a name, which disappears with the last process in it.
// False on failure; error then gives the reason.
bool EnterNewNetwork(std::string& error);

// Creates a pair of interfaces: hostInterface in the calling thread's network namespace and attackerInterface in that
// of the process. Failure as in EnterNewNetwork.
bool JoinNetworks(int peerPid, std::string& error);

// Sets the address of an interface in the calling thread's namespace, with a /30 network, and enables it. Failure as in
// EnterNewNetwork.
bool BringUp(const char* interface, const char* address, std::string& error);

}  // namespace Host
