// Handles events of names in watched directories: created, removed, moved.
#pragma once

#include <optional>
#include <set>
#include <vector>

#include "host/watch/path_follower.h"
#include "host/watch/rename_pairs.h"
#include "host/watch/watch_state.h"

namespace Host {

// One thread at a time. Changes are appended.
class NameChanges {
public:
    // REQUIRES: state and follower outlive this object.
    NameChanges(WatchState& state, PathFollower& follower) : state_(state), follower_(follower) {}

    // Call it before each read of events.
    void BeginBatch() { pairs_.BeginBatch(); }

    void Handle(const InotifyEvent& event, Clock::Time now, std::vector<Change>& changes);

    // Reports names that were moved to an unwatched place. isQuiet means that no event waited at that time.
    void TakeOverdue(Clock::Time now, bool isQuiet, std::vector<Change>& changes);

    // When to call TakeOverdue.
    std::optional<Clock::Time> Due() const { return pairs_.Due(); }

private:
    void NoteName(const InotifyEvent& event, const Place& place, Clock::Time now, std::vector<Change>& changes);
    void FollowName(const InotifyEvent& event, const Place& place, Clock::Time now, std::vector<Change>& changes);
    void TakeLinkCounts(const std::set<int>& files);
    void NoteContent(const Place& place, Clock::Time now, std::vector<Change>& changes);

    WatchState& state_;
    PathFollower& follower_;
    RenamePairs pairs_;
};

}  // namespace Host
