#include <fcntl.h>
#include <sys/fanotify.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

#include "agent/logger.h"
#include "agent/monitor.h"
#include "host/services/fanotify_marks.h"
#include "host/services/fanotify_reader.h"

namespace TavUtils::Monitor {

namespace {

// What belongs to a group and has no room in its owner's record: from the opening of the group to the end of its loop,
// or to the next opening into that record.
struct GroupTable {
    std::mutex mutex;
    std::map<const FANOTIFY_EVENT*, std::shared_ptr<Host::FanotifyMarks>> groups;
};

// Never destroyed: a loop may still run while the process exits.
GroupTable& Table() {
    static auto* const table = new GroupTable;
    return *table;
}

std::shared_ptr<Host::FanotifyMarks> MarksOf(const FANOTIFY_EVENT* event) {
    GroupTable& table = Table();
    const std::lock_guard lock(table.mutex);
    const auto found = table.groups.find(event);
    return found == table.groups.end() ? nullptr : found->second;
}

}  // namespace

int InitFanotifyEvent(FANOTIFY_EVENT* event, void (*callback)(long, const char*, unsigned int)) {
    if (event == nullptr) {
        return -1;
    }
    event->callback = callback;
    // The flags are those of the descriptors that come with the events: O_NONBLOCK, because the kernel opens the file.
    event->fd = fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK,
                              O_RDONLY | O_LARGEFILE | O_CLOEXEC | O_NOATIME | O_NONBLOCK);
    if (event->fd < 0) {
        LoggerWriteLog("NormalLog", LOG_LEVEL_WARNING, "monitor", __LINE__,
                       "no file can be watched for being read: fanotify: %s; run the agent with CAP_SYS_ADMIN",
                       std::strerror(errno));
        return -1;
    }
    GroupTable& table = Table();
    const std::lock_guard lock(table.mutex);
    table.groups[event] = std::make_shared<Host::FanotifyMarks>();
    return 0;
}

int FanotifyAddWatch(FANOTIFY_EVENT* event, const char* path, unsigned int mask) {
    const auto marks = event == nullptr ? nullptr : MarksOf(event);
    return marks && path != nullptr && marks->Add(event->fd, path, mask) == 0 ? 0 : -1;
}

void* FanotifyLoop(void* args) {
    const auto* const given = static_cast<const FanotifyLoopArgs*>(args);
    if (given == nullptr || given->event == nullptr || given->running == nullptr) {
        return nullptr;
    }
    const auto marks = MarksOf(given->event);
    if (!marks) {
        return nullptr;
    }
    Host::FanotifyReader(*given, *marks).Run();
    GroupTable& table = Table();
    const std::lock_guard lock(table.mutex);
    table.groups.erase(given->event);
    return nullptr;
}

}  // namespace TavUtils::Monitor
