// The paths that a fanotify group was asked to mark.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace Host {

// A mark belongs to an inode and does not follow a path to the file that replaces it, fanotify_mark(2). All operations
// may be called from any thread.
class FanotifyMarks {
public:
    struct Mark {
        std::string path;
        uint32_t mask = 0;
        dev_t device = 0;
        ino_t inode = 0;  // 0 for nothing there
    };

    // Bounds the memory of one group.
    static constexpr size_t capacity = 4096;

    // Marks the file that the path leads to. 0 or the errno of the failure; a path that leads nowhere is kept, because
    // something may come there.
    int Add(int group, const std::string& path, uint32_t mask);

    // Marks the files that the paths lead to by now.
    void Renew(int group);

    // The path first asked for of those that lead to that file; empty if none does. Always the same one, so that a
    // caller that compares a file with its earlier state, known by the path, finds each change once.
    std::string PathOf(dev_t device, ino_t inode) const;

    std::vector<Mark> All() const;

private:
    mutable std::mutex mutex_;
    std::vector<Mark> marks_;
};

}  // namespace Host
