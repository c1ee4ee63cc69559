// Turns the kernel's events into reports of changes, for all rules.
#pragma once

#include <optional>
#include <vector>

#include "host/watch/change_report.h"
#include "host/watch/content_changes.h"
#include "host/watch/loss_recovery.h"
#include "host/watch/name_changes.h"
#include "host/watch/path_follower.h"
#include "host/watch/watch_state.h"

namespace Host {

// One thread at a time. The time is passed to each call and never goes back.
//
// Each listener gets one report per change, however many rules and events show it:
// - a name that is created, removed or moved is an event of its directory only (NameChanges);
// - a change of a file's content or attributes is an event of the file and of the directory of the name used
// (ContentChanges);
// - a path that leads elsewhere for another reason is looked up again (PathFollower).
class FileMonitor {
public:
    using Reports = std::vector<ChangeReport>;

    // 0 or the errno of the failure. REQUIRES: called once, first.
    int Open() { return state_.inotify.Open(); }

    // Readable while events wait.
    int PollDescriptor() const { return state_.inotify.Get(); }

    // False, with a line in the log, if the path cannot be watched.
    bool Add(int handle, const WatchRule& rule, Clock::Time now) { return follower_.Add(handle, rule, now); }
    void Remove(int handle) { follower_.Remove(handle); }
    bool IsEmpty() const { return state_.rules.empty(); }
    bool Has(int handle) const { return state_.rules.contains(handle); }

    // Empty if there is no such rule.
    ChangeListener ListenerOf(int handle) const;

    // Like Inotify::Read.
    int Read(std::vector<InotifyEvent>& events);

    // Handles one event.
    Reports Handle(const InotifyEvent& event, Clock::Time now);

    // Does the work that is due. isQuiet means that no event waited at that time.
    Reports Tick(Clock::Time now, bool isQuiet);

    // When to call Tick if no event comes before.
    std::optional<Clock::Time> Due() const;

    // Call it after a mount or unmount: paths may lead elsewhere without an event.
    Reports FollowMounts(Clock::Time now);

private:
    WatchState state_;
    PathFollower follower_{state_};
    NameChanges names_{state_, follower_};
    ContentChanges contents_{state_, follower_};
    LossRecovery loss_{state_, follower_};
};

}  // namespace Host
