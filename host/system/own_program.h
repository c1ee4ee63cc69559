// The program file of this process.
#pragma once

#include <string>

namespace Host {

// The directory of the program file, without a slash at the end; empty if it cannot be read. Any thread.
std::string DirectoryOfProgram();

}  // namespace Host
