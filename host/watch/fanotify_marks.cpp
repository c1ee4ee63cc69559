#include "host/watch/fanotify_marks.h"

#include <fcntl.h>
#include <sys/fanotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <set>

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

int Apply(int group, FanotifyMarks::Mark& mark) {
    if (fanotify_mark(group, FAN_MARK_ADD, mark.mask, AT_FDCWD, mark.path.c_str()) != 0) {
        const int error = errno;
        mark.file = {};
        return error;
    }
    mark.file = FileAt(mark.path);
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
    std::vector<File> before;
    bool isChanged = false;
    for (Mark& mark : marks_) {
        before.push_back(mark.file);
        Apply(group, mark);
        isChanged = isChanged || mark.file != before.back();
    }
    if (isChanged && HasLeft(before)) {
        // A single mark is removed by a path, and a file that was moved away has none that is known.
        fanotify_mark(group, FAN_MARK_FLUSH, 0, AT_FDCWD, nullptr);
        for (Mark& mark : marks_) {
            Apply(group, mark);
        }
    }
    return isChanged;
}

// True if no path leads to one of these files any more.
bool FanotifyMarks::HasLeft(const std::vector<File>& before) const {
    std::set<File> now{File()};
    for (const Mark& mark : marks_) {
        now.insert(mark.file);
    }
    return std::ranges::any_of(before, [&](const File& file) { return !now.contains(file); });
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
