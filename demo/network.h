// Network namespaces, and the pair of interfaces that joins two of them.
#pragma once

#include <cstdint>
#include <string>

namespace Host {

// The two ends; from the addresses that are set aside for measurements (RFC 2544), in namespaces where nothing else is.
constexpr const char* hostAddress = "198.18.0.1";
constexpr const char* attackerAddress = "198.18.0.2";

constexpr const char* hostInterface = "demo0";
constexpr const char* attackerInterface = "demo1";

// Moves the calling thread into a network namespace of its own, without a name: it goes with the last process in it.
// False on failure; error then says why.
bool EnterNewNetwork(std::string& error);

// Makes a pair of interfaces: hostInterface in the calling thread's network namespace and attackerInterface in that of
// the process. As EnterNewNetwork.
bool JoinNetworks(int peerPid, std::string& error);

// Gives the interface of the calling thread's namespace its address, in a network of two, and turns it on. As
// EnterNewNetwork.
bool BringUp(const char* interface, const char* address, std::string& error);

}  // namespace Host
