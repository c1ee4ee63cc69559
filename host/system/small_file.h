// Reading the kernel's small files.
#pragma once

#include <string>

namespace Host {

// At most 256 KiB of the file; empty, with error set to an errno, if it cannot be read. Any thread.
std::string ReadSmallFile(const std::string& path, int& error);

}  // namespace Host
