// Finds changes after a loss of events, by comparing the disk with the known state.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/base/log.h"
#include "host/watch/path_follower.h"
#include "host/watch/watch_state.h"

namespace Host {

// One thread at a time. Changes are appended.
class LossRecovery {
public:
    // REQUIRES: state and follower outlive this object.
    LossRecovery(WatchState& state, PathFollower& follower) : state_(state), follower_(follower) {}

    // The kernel has dropped events.
    void Begin(Clock::Time now);

    // When to call Recover.
    std::optional<Clock::Time> Due() const { return due_; }

    // Compares everything once no event waits, so that changes already reported by events are not reported again.
    void Recover(Clock::Time now, bool isQuiet, std::vector<Change>& changes);

private:
    using Listing = std::map<std::string, FileState>;

    void CompareRules(Clock::Time now, std::vector<Change>& changes);
    void CompareDirectory(int directory, KnownFiles::Entries& entries, Clock::Time now, std::vector<Change>& changes);
    void CompareMissing(int directory, const std::string& path, Listing& found, KnownFiles::Entries& entries,
                        std::vector<Change>& changes);
    void CompareEntry(const Place& place, const FileState& state, KnownFile& known, Clock::Time now,
                      std::vector<Change>& changes);
    void TakeNewEntry(const Place& place, const FileState& state, KnownFiles::Entries& entries, bool wereAll,
                      std::vector<Change>& changes);
    void AppendEntry(const Place& place, std::optional<FileOperation> operation, const std::string& detail,
                     std::vector<Change>& changes);

    WatchState& state_;
    PathFollower& follower_;
    std::optional<Clock::Time> due_;
    LogPacer lossPacer_;
};

}  // namespace Host
