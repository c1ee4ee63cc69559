// Messages to the one who called the program.
#pragma once

#include <string>

namespace Host {

// One line on standard error, with the program's name.
void Complain(const std::string& message);

}  // namespace Host
