#include "host/watch/fanotify_marks.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace Host {

namespace {

int Apply(int group, FanotifyMarks::Mark& mark) {
    struct stat attributes {};
    if (fanotify_mark(group, FAN_MARK_ADD, mark.mask, AT_FDCWD, mark.path.c_str()) != 0) {
        const int error = errno;
        mark.inode = 0;
        return error;
    }
    const bool isThere = stat(mark.path.c_str(), &attributes) == 0;
    mark.device = isThere ? attributes.st_dev : 0;
    mark.inode = isThere ? attributes.st_ino : 0;
    return 0;
}

}  // namespace

int FanotifyMarks::Add(int group, const std::string& path, uint32_t mask) {
    Mark mark{path, mask, 0, 0};
    const int error = Apply(group, mark);
    if (error != 0 && error != ENOENT) {
        return error;
    }
    const std::lock_guard lock(mutex_);
    const auto same = std::find_if(marks_.begin(), marks_.end(), [&](const Mark& each) { return each.path == path; });
    if (same != marks_.end()) {
        mark.mask |= same->mask;
        *same = mark;
    } else if (marks_.size() < capacity) {
        marks_.push_back(mark);
    } else {
        return ENOSPC;
    }
    return error;
}

void FanotifyMarks::Renew(int group) {
    const std::lock_guard lock(mutex_);
    for (Mark& mark : marks_) {
        Apply(group, mark);
    }
}

std::string FanotifyMarks::PathOf(dev_t device, ino_t inode) const {
    const std::lock_guard lock(mutex_);
    for (const Mark& mark : marks_) {
        if (mark.inode == inode && mark.device == device && inode != 0) {
            return mark.path;
        }
    }
    return {};
}

std::vector<FanotifyMarks::Mark> FanotifyMarks::All() const {
    const std::lock_guard lock(mutex_);
    return marks_;
}

}  // namespace Host
