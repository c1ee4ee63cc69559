#include "shellfile/shell_watch.h"

int StartShellEvent([[maybe_unused]] std::set<std::string> shells) {
    return 1;
}

void StopShellEvent() {}
