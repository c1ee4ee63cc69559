// The paths that a fanotify group marks.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace Host {

// A mark belongs to an inode and does not follow a path to the file that replaces it, fanotify_mark(2). All operations:
// any thread.
class FanotifyMarks {
public:
    struct File {
        dev_t device = 0;
        ino_t inode = 0;     // 0 if nothing is there
        int64_t bornNs = 0;  // distinguishes files that got the same inode number in turn; 0 if unknown

        bool operator==(const File&) const = default;
    };

    struct Mark {
        std::string path;
        uint32_t mask = 0;
        File file = {};
    };

    // Bounds the memory per group.
    static constexpr size_t capacity = 4096;

    // Marks the file that the path leads to. 0 or the errno of the failure. A path that leads nowhere is kept, because
    // a file may appear there.
    int Add(int group, const std::string& path, uint32_t mask);

    // Marks the files that the paths lead to now, and removes the marks of files that no path leads to any more. True
    // if a path leads to another file than before. Examine all files then: events may have been missed.
    bool Renew(int group);

    // The first added path of those that lead to that file; empty if none does. It is always the same one, so that a
    // caller that compares a file with its earlier state by path finds each change once.
    std::string PathOf(dev_t device, ino_t inode) const;

    std::vector<Mark> All() const;

private:
    mutable std::mutex mutex_;
    std::vector<Mark> marks_;
};

}  // namespace Host
