// Which inodes are watched for which events, on behalf of how many.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/watch/inotify.h"

namespace Host {

// One wish for the events of a mask. Owned by the caller that asked for it and given back with Release.
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
    // path is where the inode was found: a link-free path by which it is found again.
    WatchHold Hold(int pathFd, const std::string& path, uint32_t mask);

    // Nobody else's events are lost; the watch ends with its last hold.
    void Release(const WatchHold& hold);

    // The kernel has ended the watch by itself.
    void Forget(int watch);

    // Where the inode was found last; empty for an unknown watch.
    std::string PathOf(int watch) const;

    // True if the inode behind pathFd is the one of that watch.
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
