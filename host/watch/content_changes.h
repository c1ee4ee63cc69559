// Events of the content and the attributes of files.
#pragma once

#include <optional>
#include <vector>

#include "host/watch/path_follower.h"
#include "host/watch/watch_state.h"

namespace Host {

// An event of the file itself and one of the directory of the name used show the same change. The first one is
// reported; the other finds a write that goes on, or attributes that are known already.
//
// One thread at a time. Changes are appended.
class ContentChanges {
public:
    // REQUIRES: state and follower outlive this.
    ContentChanges(WatchState& state, PathFollower& follower) : state_(state), follower_(follower) {}

    void Handle(const InotifyEvent& event, Clock::Time now, std::vector<Change>& changes);

    // Looks at files whose lower link counts have waited long enough.
    void TakeLinksDue(Clock::Time now, bool isQuiet, std::vector<Change>& changes);

private:
    void HandleFile(const InotifyEvent& event, int file, const std::optional<Place>& place, Moment moment,
                    std::vector<Change>& changes);
    void HandleEntry(const InotifyEvent& event, const Place& place, Moment moment, std::vector<Change>& changes);

    WatchState& state_;
    PathFollower& follower_;
};

// Looks at a file that a rule's path leads to. place is the name under which it was changed, if known.
void LookAtFile(WatchState& state, int file, const std::optional<Place>& place, Cause cause, Moment moment,
                std::vector<Change>& changes);

}  // namespace Host
