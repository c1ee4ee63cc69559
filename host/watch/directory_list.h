// The entries of a directory and their state.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "host/watch/file_state.h"

namespace Host {

// At most limit entries by name; links are entries, not what they lead to. An entry of which the state cannot be read is
// left out. 0 or the errno of the failure, E2BIG if there are more of them.
int ListDirectory(const std::string& path, size_t limit, std::map<std::string, FileState>& entries);

// True for failures that pass: something has run out.
bool IsShortage(int error);

}  // namespace Host
