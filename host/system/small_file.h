// Files that are read into memory as a whole.
#pragma once

#include <string>

#include "host/base/descriptor.h"

namespace Host {

// Reads to the end of the file, at most limit bytes, into text. 0 on success; otherwise the errno of the read, and text
// is left as it was. Any thread.
int ReadUpTo(const Descriptor& file, size_t limit, std::string& text);

// At most 256 KiB of one of the kernel's files; empty, with error set to an errno, if it cannot be read. Any thread.
std::string ReadSmallFile(const std::string& path, int& error);

}  // namespace Host
