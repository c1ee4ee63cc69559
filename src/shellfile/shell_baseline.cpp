#include "shellfile/shell_baseline.h"

void InitShellsHashSize([[maybe_unused]] std::set<std::string> shells) {}
