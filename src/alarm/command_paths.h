// Where on the host a command lives, and whether a program is one of the host's ordinary ones.
#pragma once

#include <set>
#include <string>

// Resolved paths of every regular file of that name in the directories of "PATH"; links to one file give one element.
// Empty for an empty command and when "PATH" is not set. Any thread.
std::set<std::string> CmdPaths(const std::string& command);

// True for a shell of the host, a program whose name is also found on "PATH", and an interpreter such as python3: a
// program that says nothing about where a command came from. Only the base name counts for the last two, and "yum" is
// never one. False for null. Any thread.
bool IsCommonCommand(const char* path);
