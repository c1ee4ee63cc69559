#include "host/watch/fanotify_group.h"

#include <fcntl.h>
#include <linux/kcmp.h>
#include <sys/eventfd.h>
#include <sys/fanotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "agent/files.h"
#include "host/base/log.h"
#include "host/watch/monitor_service.h"

namespace Host {

FanotifyGroup::~FanotifyGroup() {
    for (const auto& [path, rule] : rules) {
        MonitorService::Instance().Remove(rule);
    }
}

void FanotifyGroup::Follow(const std::string& path) {
    const std::lock_guard lock(rulesMutex);
    if (rules.size() < FanotifyMarks::capacity && !rules.contains(path)) {
        rules[path] = MonitorService::Instance().Add(
            {path, ~0U, true, this, [this](const ChangeReport&) { eventfd_write(replaced.Get(), 1); }});
    }
}

bool FanotifyGroup::IsOwnersOpen() const {
    const long order = syscall(SYS_kcmp, getpid(), getpid(), KCMP_FILE, ownersNumber, duplicate.Get());
    if (order >= 0 || errno == EBADF) {
        return order == 0;
    }
    // The kernel lacks kcmp or denies it. Another group with that number then passes as this one.
    const std::string link = TavUtils::FileAttribute::GetRealLink("/proc/self/fd/" + std::to_string(ownersNumber));
    return link.find("[fanotify]") != std::string::npos;
}

FanotifyGroups& FanotifyGroups::Instance() {
    static auto* const groups = new FanotifyGroups;
    return *groups;
}

int FanotifyGroups::Open(const void* owner) {
    auto group = std::make_shared<FanotifyGroup>();
    group->replaced = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    // The flags apply to the descriptors of the events. O_NONBLOCK, because the kernel opens the file.
    const int owners = fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK,
                                     O_RDONLY | O_LARGEFILE | O_CLOEXEC | O_NOATIME | O_NONBLOCK);
    group->ownersNumber = owners;
    group->duplicate = Descriptor(owners < 0 ? -1 : fcntl(owners, F_DUPFD_CLOEXEC, 0));
    if (!group->duplicate.IsOpen()) {
        const int error = errno;
        LogWarning("cannot watch accesses to files, changes of their flags (chattr) stay unnoticed: fanotify: %s (%s)",
                   std::strerror(error),
                   error == EMFILE ? "see fs.fanotify.max_user_groups and the limit of open files"
                                   : "run the agent with CAP_SYS_ADMIN");
        if (owners >= 0) {
            close(owners);
        }
        return -1;
    }
    const std::lock_guard lock(mutex_);
    // Removes groups whose owners closed them without a loop. A running loop shares its group.
    std::erase_if(groups_,
                  [](const auto& each) { return each.second.use_count() == 1 && !each.second->IsOwnersOpen(); });
    groups_[owner] = std::move(group);
    return owners;
}

std::shared_ptr<FanotifyGroup> FanotifyGroups::Find(const void* owner) {
    const std::lock_guard lock(mutex_);
    const auto found = groups_.find(owner);
    return found == groups_.end() ? nullptr : found->second;
}

void FanotifyGroups::Forget(const void* owner) {
    const std::lock_guard lock(mutex_);
    groups_.erase(owner);
}

}  // namespace Host
