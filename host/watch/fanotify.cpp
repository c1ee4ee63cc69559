#include <fcntl.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "agent/monitor.h"
#include "host/base/log.h"
#include "host/watch/fanotify_reader.h"

namespace TavUtils::Monitor {

namespace {

// What belongs to a group and has no room in its owner's record: from the opening of the group to the end of its loop.
struct GroupTable {
    std::mutex mutex;
    std::map<const FANOTIFY_EVENT*, std::shared_ptr<Host::FanotifyGroup>> groups;
};

// Never destroyed: a loop may still run while the process exits.
GroupTable& Table() {
    static auto* const table = new GroupTable;
    return *table;
}

std::shared_ptr<Host::FanotifyGroup> GroupOf(const FANOTIFY_EVENT* event) {
    GroupTable& table = Table();
    const std::lock_guard lock(table.mutex);
    const auto found = table.groups.find(event);
    return found == table.groups.end() ? nullptr : found->second;
}

void Keep(const FANOTIFY_EVENT* event, std::shared_ptr<Host::FanotifyGroup> group) {
    GroupTable& table = Table();
    const std::lock_guard lock(table.mutex);
    // Groups that their owners have closed without a loop; one with a loop is the loop's too.
    std::erase_if(table.groups,
                  [](const auto& each) { return each.second.use_count() == 1 && !each.second->IsOwnersOpen(); });
    table.groups[event] = std::move(group);
}

void Forget(const FANOTIFY_EVENT* event) {
    GroupTable& table = Table();
    const std::lock_guard lock(table.mutex);
    table.groups.erase(event);
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
    auto group = std::make_shared<Host::FanotifyGroup>();
    group->owners = event->fd;
    group->duplicate = Host::Descriptor(event->fd < 0 ? -1 : fcntl(event->fd, F_DUPFD_CLOEXEC, 0));
    if (!group->duplicate.IsOpen()) {
        LogWarning("no file can be watched for being read: fanotify: %s; run the agent with CAP_SYS_ADMIN",
                   std::strerror(errno));
        if (event->fd >= 0) {
            close(event->fd);
            event->fd = -1;
        }
        return -1;
    }
    Keep(event, std::move(group));
    return 0;
}

int FanotifyAddWatch(FANOTIFY_EVENT* event, const char* path, unsigned int mask) {
    const auto group = event == nullptr ? nullptr : GroupOf(event);
    return group && path != nullptr && group->marks.Add(group->duplicate.Get(), path, mask) == 0 ? 0 : -1;
}

void* FanotifyLoop(void* args) {
    const auto* const given = static_cast<const FanotifyLoopArgs*>(args);
    if (given == nullptr || given->event == nullptr || given->running == nullptr) {
        return nullptr;
    }
    const auto group = GroupOf(given->event);
    if (group) {
        Host::FanotifyReader(*given, *group).Run();
        Forget(given->event);
    }
    return nullptr;
}

}  // namespace TavUtils::Monitor
