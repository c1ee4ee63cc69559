// The inotify descriptor: events of watched inodes, inotify(7).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/base/descriptor.h"

namespace Host {

// One record as the kernel wrote it. The name is that of a directory's entry, empty if the event is the inode's own.
struct InotifyEvent {
    int watch = -1;
    uint32_t mask = 0;
    uint32_t cookie = 0;  // the same for the two halves of a rename
    std::string name;
};

// Appends the records of a buffer that read(2) filled; a cut record ends it.
void ParseInotifyEvents(const char* buffer, size_t size, std::vector<InotifyEvent>& events);

// One thread at a time. The kernel gives an inode one watch number however often and under whatever name it is watched,
// and does not give the number out again: equal numbers are the same inode, which not even equal device and inode
// numbers are, because a file system uses those again.
class Inotify {
public:
    // 0 or the errno of the failure.
    int Open();
    void Close() { descriptor_.Close(); }

    // Readable when events wait. REQUIRES: open.
    int Get() const { return descriptor_.Get(); }

    // Adds the events of mask to the watch of the inode behind pathFd, which may be open with O_PATH. The watch's
    // number, or -1 with errno.
    int Add(int pathFd, uint32_t mask);

    // The same, but the watch then has no other events.
    int Replace(int pathFd, uint32_t mask);

    // Unknown numbers are ignored.
    void Remove(int watch);

    // Appends a bounded number of the events that wait. Does not wait. 0 or the errno of the failure.
    int Read(std::vector<InotifyEvent>& events);

private:
    Descriptor descriptor_;
};

}  // namespace Host
