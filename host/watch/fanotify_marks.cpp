#include "host/watch/fanotify_marks.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>

namespace Host {

namespace {

FanotifyMarks::File FileAt(const std::string& path) {
    struct statx found {};
    if (statx(AT_FDCWD, path.c_str(), AT_STATX_SYNC_AS_STAT, STATX_INO | STATX_BTIME, &found) != 0) {
        return {};
    }
    const bool isBirthKnown = (found.stx_mask & STATX_BTIME) != 0;
    return {makedev(found.stx_dev_major, found.stx_dev_minor), static_cast<ino_t>(found.stx_ino),
            isBirthKnown ? found.stx_btime.tv_sec * 1000000000 + found.stx_btime.tv_nsec : 0};
}

// The file is looked up first: if another one comes in between, that is marked, and the next renewal sees the change.
int Apply(int group, FanotifyMarks::Mark& mark) {
    mark.file = FileAt(mark.path);
    if (fanotify_mark(group, FAN_MARK_ADD, mark.mask, AT_FDCWD, mark.path.c_str()) != 0) {
        const int error = errno;
        mark.file = {};
        return error;
    }
    return 0;
}

}  // namespace

int FanotifyMarks::Add(int group, const std::string& path, uint32_t mask) {
    Mark mark{path, mask};
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

bool FanotifyMarks::Renew(int group) {
    const std::lock_guard lock(mutex_);
    bool isChanged = false;
    for (Mark& mark : marks_) {
        const File before = mark.file;
        Apply(group, mark);
        isChanged = isChanged || mark.file != before;
    }
    if (isChanged) {
        // A single mark is removed by a path, and a file that was moved away has none that is known.
        fanotify_mark(group, FAN_MARK_FLUSH, 0, AT_FDCWD, nullptr);
        for (Mark& mark : marks_) {
            Apply(group, mark);
        }
    }
    return isChanged;
}

std::string FanotifyMarks::PathOf(dev_t device, ino_t inode) const {
    const std::lock_guard lock(mutex_);
    for (const Mark& mark : marks_) {
        if (mark.file.inode == inode && mark.file.device == device && inode != 0) {
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
