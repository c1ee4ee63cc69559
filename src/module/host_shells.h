// The host's shell programs and its ssh server.
#pragma once

#include <set>
#include <string>

// Inode numbers of the files that the command sshd stands for on PATH; one log line each.
std::set<unsigned long> FindSshdInodes();

// The shells that the agent's "default_shells" file and /etc/shells list, as they stand there.
std::set<std::string> ListedShells();

// Sets shellPaths and sshdInodes to those of the host. False if no shell could be resolved or memory ran out; there are
// no shell paths then. Called by the thread that initialises the module.
bool LearnHostShells();

// Adds to paths each listed shell that exists, both as listed and with all links resolved, so that a link and its
// target both count. False if memory runs out.
bool ResolveShellPaths(const std::set<std::string>& listed, std::set<std::string>& paths);
