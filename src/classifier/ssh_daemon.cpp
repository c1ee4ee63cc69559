#include "classifier/ssh_daemon.h"

#include <sys/stat.h>

#include "frame/log.h"
#include "frame/settings.h"
#include "inspect/detect_shell_utils.h"

static constexpr char logSource[] = "detect_reverse_shell";

bool IsSshdShell(long pid) {
    const std::string path = DetectShellUtil::GetProcExe(static_cast<int>(pid));
    if (path.empty()) {
        return true;
    }
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !sshdInodes.contains(static_cast<unsigned long>(info.st_ino))) {
        return false;
    }
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "sshd shell");
    return true;
}
