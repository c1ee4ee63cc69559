// What the shell files of the host looked like when they were last known good.
#pragma once

#include <set>
#include <string>

// Takes a fresh baseline of the shells. Not there yet: it does nothing.
void InitShellsHashSize(std::set<std::string> shells);
