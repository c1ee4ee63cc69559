#include "agent/monitor.h"

#include <mutex>

#include "agent/logger.h"

namespace TavUtils::Monitor {

namespace {

// Modules ask once per path; the answer is the same for all of them.
void SayOnceThatNothingIsWatched() {
    static std::once_flag said;
    std::call_once(said, [] {
        LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "monitor", __LINE__,
                       "file monitoring is not part of this version: no path is watched");
    });
}

}  // namespace

FileWatchRule::~FileWatchRule() = default;

int AddMonitor(const FileWatchRule& /*rule*/, MonitorType /*type*/) {
    SayOnceThatNothingIsWatched();
    return 0;
}

int RemoveMonitor(const FileWatchRule& /*rule*/, MonitorType /*type*/) {
    SayOnceThatNothingIsWatched();
    return -1;
}

int InitFanotifyEvent(FANOTIFY_EVENT* event, void (*callback)(long, const char*, unsigned int)) {
    SayOnceThatNothingIsWatched();
    if (event != nullptr) {
        // The owner closes the descriptor whatever came of it.
        event->fd = -1;
        event->callback = callback;
    }
    return -1;
}

int FanotifyAddWatch(FANOTIFY_EVENT* /*event*/, const char* /*path*/, unsigned int /*mask*/) {
    SayOnceThatNothingIsWatched();
    return -1;
}

void* FanotifyLoop(void* /*args*/) {
    SayOnceThatNothingIsWatched();
    return nullptr;
}

}  // namespace TavUtils::Monitor
