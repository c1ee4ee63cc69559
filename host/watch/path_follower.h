// Keeps each rule on the target of its path and finds the resulting changes.
#pragma once

#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "host/base/log.h"
#include "host/watch/change_meaning.h"
#include "host/watch/change_report.h"
#include "host/watch/watch_state.h"

namespace Host {

// One thread at a time. Changes are appended.
class PathFollower {
public:
    // REQUIRES: state outlives this object.
    explicit PathFollower(WatchState& state) : state_(state) {}

    // False, with a line in the log, if the path cannot be watched.
    bool Add(int handle, const WatchRule& rule, Clock::Time now);
    void Remove(int handle);

    // Call it before each event: two paths to one place that show the same event are one change.
    void BeginEvent() { reported_.clear(); }

    // Looks up where the rule's path leads now and watches that.
    void Follow(WatchedRule& rule, Cause cause, Clock::Time now, std::vector<Change>& changes);

    // The same for all rules.
    void FollowAll(Cause cause, Clock::Time now, std::vector<Change>& changes);

    // The same for rules that depend on a watched file or directory that was removed, moved or unmounted.
    void FollowEnd(const InotifyEvent& event, Clock::Time now, std::vector<Change>& changes);

    // When to call Retry for the rules that could not be watched completely.
    std::optional<Clock::Time> RetryDue() const { return retryDue_; }
    void Retry(Clock::Time now, std::vector<Change>& changes);

private:
    void Attach(WatchedRule& rule, bool isNameReported, Clock::Time now);
    void ForgetUnused(int file);
    void RetryLater(Clock::Time now);
    std::optional<FileState> StateOf(int file) const;
    void NoteArrival(int file, FileOperation operation, Clock::Time now);
    void LogFailure(const WatchedRule& rule, int error, bool isRetried);

    WatchState& state_;
    std::set<std::pair<Place, FileOperation>> reported_;  // of the current event
    std::optional<Clock::Time> retryDue_;
    LogPacer failurePacer_;
};

}  // namespace Host
