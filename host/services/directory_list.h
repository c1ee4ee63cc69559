// The entries of a directory and their state.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "host/services/file_state.h"

namespace Host {

// At most limit entries by name; links are entries, not what they lead to. False if the directory cannot be read or has
// more of them.
bool ListDirectory(const std::string& path, size_t limit, std::map<std::string, FileState>& entries);

}  // namespace Host
