// Where on the host a command lives.
#pragma once

#include <set>
#include <string>

// Resolved paths of every regular file of that name in the directories of "PATH"; links to one file give one element.
// Empty for an empty command and when "PATH" is not set. Any thread.
std::set<std::string> CmdPaths(const std::string& command);
