// The environment that this process was started in.
#pragma once

#include <string>

namespace Host {

// Why the module keeps its search for reverse shells off in this environment, as a sentence without its full stop.
// Empty if it does not. Any thread.
std::string WhySearchIsOff();

// The directory of the program file, without a slash at the end; empty if it cannot be read. Any thread.
std::string DirectoryOfProgram();

}  // namespace Host
