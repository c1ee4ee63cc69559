// Counts the holders of each watched inode and the events that they need.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/watch/inotify.h"

namespace Host {

// One holder's claim to the events of a mask. The caller owns it and ends it with Release.
struct WatchHold {
    int watch = -1;
    uint32_t mask = 0;
};

// One thread at a time.
class WatchTable {
public:
    // REQUIRES: inotify outlives the table.
    explicit WatchTable(Inotify& inotify) : inotify_(inotify) {}

    // Watches the inode behind pathFd at least for the events of mask. The hold's watch is -1 on failure, with errno.
    // path is the inode's link-free path, through which it can be found again.
    WatchHold Hold(int pathFd, const std::string& path, uint32_t mask);

    // Ends a hold. Other holders lose no events. The watch ends with its last hold.
    void Release(const WatchHold& hold);

    // Call it when the kernel has ended the watch.
    void Forget(int watch);

    // The inode's last known path; empty for an unknown watch.
    std::string PathOf(int watch) const;

    // True if the watch is on the inode behind pathFd.
    bool IsBehind(int pathFd, int watch);

    bool Has(int watch) const { return watches_.contains(watch); }

private:
    struct Watch {
        std::string path;
        uint32_t mask = 0;
        std::vector<uint32_t> holds;
    };

    void Narrow(int number, Watch& watch);

    Inotify& inotify_;
    std::map<int, Watch> watches_;
};

}  // namespace Host
