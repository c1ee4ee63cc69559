// What kind of file a path leads to.
#pragma once

#include <string>

// True if the path leads, over links, to a regular file. Any thread.
bool IsRegularFile(const std::string& path);
