// Reads small files as a whole.
#pragma once

#include <string>

#include "host/base/descriptor.h"

namespace Host {

// Reads the file to its end, at most limit bytes, into text. Returns 0, or the errno of the read; text is then
// unchanged. Any thread.
int ReadUpTo(const Descriptor& file, size_t limit, std::string& text);

// Reads one of the kernel's files, at most 256 KiB. If it cannot be read, returns an empty text and sets error to an
// errno. Any thread.
std::string ReadSmallFile(const std::string& path, int& error);

}  // namespace Host
