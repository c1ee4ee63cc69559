#include "shellfile/shell_file_callback.h"

#include "agent/files.h"
#include "frame/pacing.h"
#include "shellfile/abnormal_shell_event.h"
#include "shellfile/shell_baseline.h"
#include "shellfile/shell_event_handlers.h"

static constexpr unsigned int reportPauseMicroseconds = 100;

static bool IsTemporary(const char* path) {
    return path != nullptr && TavUtils::FileAttribute::IsTemporaryFile(path);
}

static bool IsShell(const char* path) {
    return path != nullptr && path[0] != '\0' && IsShellFile(path);
}

void ShellFileCallback(int /*reserved*/, const char* path, const char* otherPath, bool /*alsoReserved*/, int operation,
                       const std::string& detail) {
    if (shellEventStarted.load(std::memory_order_relaxed) == 0 || (path == nullptr && otherPath == nullptr)) {
        return;
    }
    if (IsTemporary(path) || IsTemporary(otherPath)) {
        return;
    }
    const char* const shell = IsShell(path) ? path : otherPath;
    if (!IsShell(shell)) {
        return;
    }
    SHELL_EVENT event;
    event.path = shell;
    HandleShellReport(event, path, otherPath, operation, detail);
    Pause(reportPauseMicroseconds);
}
