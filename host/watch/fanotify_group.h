// The open fanotify groups.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/base/descriptor.h"
#include "host/watch/fanotify_marks.h"

namespace Host {

// A fanotify group. The owner ends the loop by closing its descriptor, and its number may be reused a moment later. The
// close does not wake a reader either. The loop therefore reads a duplicate.
struct FanotifyGroup {
    int ownersNumber = -1;  // the number of the owner's descriptor
    Descriptor duplicate;
    FanotifyMarks marks;
    Descriptor replaced;  // readable once another file may have come to a path that is followed
    std::mutex rulesMutex;
    std::map<std::string, int> rules;  // handles of the file monitor by path

    ~FanotifyGroup();

    // Has the file monitor follow the path. Any thread.
    void Follow(const std::string& path);

    // True while the owner's number still refers to this group. Any thread.
    bool IsOwnersOpen() const;
};

// State of a group that does not fit in its owner's record, from the opening of the group to the end of its loop. The
// address of that record identifies the owner. Any thread.
class FanotifyGroups {
public:
    // The process-wide table. Never destroyed: a loop may still run while the process exits.
    static FanotifyGroups& Instance();

    // Opens a group. Returns its descriptor, which the caller closes; -1 on failure, with a line in the log.
    int Open(const void* owner);

    // Null if there is no such group.
    std::shared_ptr<FanotifyGroup> Find(const void* owner);

    void Forget(const void* owner);

private:
    std::mutex mutex_;
    std::map<const void*, std::shared_ptr<FanotifyGroup>> groups_;
};

}  // namespace Host
