// The host's shell programs and ssh server.
#pragma once

#include <set>
#include <string>

// Returns the inode numbers of the files named sshd on PATH. Logs one line per file.
std::set<unsigned long> FindSshdInodes();

// Returns the shells listed in the agent's file "default_shells" and in /etc/shells, unresolved.
std::set<std::string> ListedShells();

// Sets shellPaths and sshdInodes. Returns false and leaves shellPaths empty if no shell could be resolved or memory ran
// out; sshdInodes is set in any case. Called by the thread that initialises the module.
bool LearnHostShells();

// Adds each listed shell that exists to paths, as listed and with all links resolved, so that a link and its target
// both count. Returns false if memory runs out.
bool ResolveShellPaths(const std::set<std::string>& listed, std::set<std::string>& paths);
