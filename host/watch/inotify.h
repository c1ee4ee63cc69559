// The inotify descriptor: events of watched inodes, inotify(7).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/descriptor.h"

namespace Host {

// One record as the kernel wrote it. name is that of a directory's entry; it is empty for an event of the inode itself.
struct InotifyEvent {
    int watch = -1;
    uint32_t mask = 0;
    uint32_t cookie = 0;  // equal in the two halves of a rename
    std::string name;
};

// Appends the records of a buffer that read(2) filled. Stops at a cut record.
void ParseInotifyEvents(const char* buffer, size_t size, std::vector<InotifyEvent>& events);

// One thread at a time. The kernel gives an inode one watch number, however often and under whatever names it is
// watched, and does not reuse the number. Equal numbers therefore mean the same inode. Equal device and inode numbers
// do not, because file systems reuse them.
class Inotify {
public:
    // 0 or the errno of the failure.
    int Open();
    void Close() { descriptor_.Close(); }

    // Readable when events wait. REQUIRES: open.
    int Get() const { return descriptor_.Get(); }

    // Adds the events of mask to the watch of the inode behind pathFd, which may be open with O_PATH. Returns the
    // watch's number, or -1 with errno.
    int Add(int pathFd, uint32_t mask);

    // The same, but removes all other events from the watch.
    int Replace(int pathFd, uint32_t mask);

    // Ignores unknown numbers.
    void Remove(int watch);

    // Appends a bounded number of the waiting events. Does not wait. 0 or the errno of the failure.
    int Read(std::vector<InotifyEvent>& events);

private:
    Descriptor descriptor_;
};

}  // namespace Host
