// Looks up commands on PATH and recognizes the host's ordinary programs.
#pragma once

#include <set>
#include <string>

// Resolved paths of all regular files of that name in the directories of "PATH". Several links to one file give one
// element. Empty for an empty command and if "PATH" is not set. Any thread.
std::set<std::string> CmdPaths(const std::string& command);

// True for a shell of the host, a program whose base name is found on "PATH", and an interpreter such as python3. Such
// a program does not show who started an attack. False for the base name "yum" and for null. Any thread.
bool IsCommonCommand(const char* path);
