#include "host/watch/watch_table.h"

#include <fcntl.h>
#include <sys/inotify.h>

#include <algorithm>

namespace Host {

WatchHold WatchTable::Hold(int pathFd, const std::string& path, uint32_t mask) {
    const int number = inotify_.Add(pathFd, mask);
    if (number < 0) {
        return {-1, 0};
    }
    Watch& watch = watches_[number];
    watch.path = path;
    watch.mask |= mask;
    watch.holds.push_back(mask);
    return {number, mask};
}

void WatchTable::Release(const WatchHold& hold) {
    const auto found = watches_.find(hold.watch);
    if (found == watches_.end()) {
        return;
    }
    Watch& watch = found->second;
    const auto mine = std::find(watch.holds.begin(), watch.holds.end(), hold.mask);
    if (mine != watch.holds.end()) {
        watch.holds.erase(mine);
    }
    if (watch.holds.empty()) {
        inotify_.Remove(hold.watch);
        watches_.erase(found);
        return;
    }
    Narrow(hold.watch, watch);
}

// Drops events that nobody needs any more, such as those of a busy directory in which a name was awaited. They would
// wake the monitor.
void WatchTable::Narrow(int number, Watch& watch) {
    uint32_t wanted = 0;
    for (const uint32_t mask : watch.holds) {
        wanted |= mask;
    }
    if (wanted == watch.mask) {
        return;
    }
    const Descriptor file(open(watch.path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!file.IsOpen()) {
        return;
    }
    // The path may lead to another inode now. That inode's watch must not lose any events.
    const int there = inotify_.Add(file.Get(), wanted);
    if (there == number) {
        inotify_.Replace(file.Get(), wanted);
        watch.mask = wanted;
        return;
    }
    if (const auto other = watches_.find(there); other != watches_.end()) {
        inotify_.Replace(file.Get(), other->second.mask);
    } else if (there >= 0) {
        inotify_.Remove(there);
    }
}

bool WatchTable::IsBehind(int pathFd, int watch) {
    // Every watch has this event, so that the call changes nothing.
    const int there = inotify_.Add(pathFd, IN_DELETE_SELF);
    if (there >= 0 && !watches_.contains(there)) {
        inotify_.Remove(there);
    }
    return there == watch;
}

void WatchTable::Forget(int watch) {
    watches_.erase(watch);
}

std::string WatchTable::PathOf(int watch) const {
    const auto found = watches_.find(watch);
    return found == watches_.end() ? std::string() : found->second.path;
}

}  // namespace Host
