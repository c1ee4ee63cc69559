#include "host/watch/fanotify_group.h"

#include <fcntl.h>
#include <linux/kcmp.h>
#include <sys/fanotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "agent/files.h"
#include "host/base/log.h"

namespace Host {

bool FanotifyGroup::IsOwnersOpen() const {
    const long order = syscall(SYS_kcmp, getpid(), getpid(), KCMP_FILE, ownersNumber, duplicate.Get());
    if (order >= 0 || errno == EBADF) {
        return order == 0;
    }
    // A kernel without kcmp, or one that does not grant it: then another group of that number passes for this one.
    const std::string link = TavUtils::FileAttribute::GetRealLink("/proc/self/fd/" + std::to_string(ownersNumber));
    return link.find("[fanotify]") != std::string::npos;
}

FanotifyGroups& FanotifyGroups::Instance() {
    static auto* const groups = new FanotifyGroups;
    return *groups;
}

int FanotifyGroups::Open(const void* owner) {
    // The flags are those of the descriptors that come with the events: O_NONBLOCK, because the kernel opens the file.
    const int owners = fanotify_init(FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK,
                                     O_RDONLY | O_LARGEFILE | O_CLOEXEC | O_NOATIME | O_NONBLOCK);
    auto group = std::make_shared<FanotifyGroup>();
    group->ownersNumber = owners;
    group->duplicate = Descriptor(owners < 0 ? -1 : fcntl(owners, F_DUPFD_CLOEXEC, 0));
    if (!group->duplicate.IsOpen()) {
        LogWarning("no file can be watched for being read: fanotify: %s; run the agent with CAP_SYS_ADMIN",
                   std::strerror(errno));
        if (owners >= 0) {
            close(owners);
        }
        return -1;
    }
    const std::lock_guard lock(mutex_);
    // Groups that their owners have closed without a loop; one with a loop is the loop's too.
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
