// The environment in which this process was started.
#pragma once

#include <string>

namespace Host {

// The reason why the module does not search for reverse shells in this environment, as a sentence without its full
// stop. Empty if it does search. Any thread.
std::string WhySearchIsOff();

// The directory of the program file, without a slash at the end; empty if it cannot be read. Any thread.
std::string DirectoryOfProgram();

}  // namespace Host
