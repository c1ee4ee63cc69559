// The host's shell programs and its ssh server.
#pragma once

#include <set>
#include <string>

// Inode numbers of the files that the command sshd stands for on PATH; one log line each.
std::set<unsigned long> FindSshdInodes();

// The shells that the agent's "default_shells" file and /etc/shells list, as they stand there.
std::set<std::string> ListedShells();

// Adds to paths each listed shell that exists, both as listed and with all links resolved, so that a link and its
// target both count. False if memory runs out.
bool ResolveShellPaths(const std::set<std::string>& listed, std::set<std::string>& paths);
