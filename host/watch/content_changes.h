// Handles events of the content and the attributes of files.
#pragma once

#include <optional>
#include <vector>

#include "host/watch/path_follower.h"
#include "host/watch/watch_state.h"

namespace Host {

// The file itself and the directory of the name used both report the same change. The first event is reported; the
// second finds a continuing write, or attributes that are known already.
//
// One thread at a time. Changes are appended.
class ContentChanges {
public:
    // REQUIRES: state and follower outlive this object.
    ContentChanges(WatchState& state, PathFollower& follower) : state_(state), follower_(follower) {}

    void Handle(const InotifyEvent& event, Clock::Time now, std::vector<Change>& changes);

    // Examines files whose lower link counts have waited long enough.
    void TakeLinksDue(Clock::Time now, bool isQuiet, std::vector<Change>& changes);

private:
    void HandleFile(const InotifyEvent& event, int file, const std::optional<Place>& place, Moment moment,
                    std::vector<Change>& changes);
    void HandleEntry(const InotifyEvent& event, const Place& place, Moment moment, std::vector<Change>& changes);

    WatchState& state_;
    PathFollower& follower_;
};

// Examines a file that a rule's path leads to. place is the name through which it was changed, if known.
void LookAtFile(WatchState& state, int file, const std::optional<Place>& place, Cause cause, Moment moment,
                std::vector<Change>& changes);

}  // namespace Host
