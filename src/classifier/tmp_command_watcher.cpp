#include "classifier/tmp_command_watcher.h"

bool StartDetectTmpRshell([[maybe_unused]] const std::set<std::string>& shells) {
    return false;
}

void StopDetectTmpRshell() {}
