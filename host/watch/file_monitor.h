// From the kernel's events to the reports of changes, for all rules together.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/base/log.h"
#include "host/watch/change_report.h"
#include "host/watch/inotify.h"
#include "host/watch/known_file.h"
#include "host/watch/rename_pairs.h"
#include "host/watch/watch_table.h"
#include "host/watch/watched_rule.h"

namespace Host {

// One thread at a time.
//
// A change is told once to each listener, however many rules and events show it:
// - a name that is made, removed or moved is an event of its directory alone;
// - what is in a file, or its attributes, is an event of the file and of the directory of the name used. The first one
//   is told, and the other finds a write that goes on, or attributes that are known already.
class FileMonitor {
public:
    using Time = std::chrono::steady_clock::time_point;
    using Reports = std::vector<ChangeReport>;

    // Entries of one directory of which the state is known, about 3 MiB. Changes of others are told without the
    // attributes' values, and not told if the kernel loses events.
    static constexpr size_t mostEntries = 16384;

    // 0 or the errno of the failure. To be called once, first.
    int Open() { return inotify_.Open(); }

    // Readable when events wait.
    int PollDescriptor() const { return inotify_.Get(); }

    // False, with a line in the log, if the path cannot be watched.
    bool Add(int handle, const TavUtils::Monitor::FileWatchRule& rule);
    void Remove(int handle);
    bool IsEmpty() const { return rules_.empty(); }
    bool Has(int handle) const { return rules_.contains(handle); }

    // Null if there is no such rule.
    std::shared_ptr<TavUtils::Monitor::FileWatchCallback> ListenerOf(int handle) const;

    // As Inotify::Read.
    int Read(std::vector<InotifyEvent>& events) {
        pairs_.BeginBatch();
        return inotify_.Read(events);
    }

    // Takes one event and appends what is to be told.
    void Handle(const InotifyEvent& event, Time now, Reports& reports);

    // Does what is due. isQuiet says that no event waited at that time.
    void Tick(Time now, bool isQuiet, Reports& reports);

    // When Tick has something to do, if no event comes before.
    std::optional<Time> Due() const;

    // File systems were mounted or unmounted: paths may lead elsewhere, and no event tells.
    void LookAtPaths(Reports& reports);

private:
    using Entries = std::map<std::string, KnownFile>;

    // What it means that a path leads to something, or to nothing any more.
    struct Explanation {
        FileOperation vanished = FILE_DELETED;
        FileOperation appeared = FILE_MODIFIED;
        bool isTold = false;  // what has happened to the name is told already
    };

    void HandleOwnEnd(const InotifyEvent& event, Reports& reports);
    void HandleName(const InotifyEvent& event, Time now, Reports& reports);
    void HandleContent(const InotifyEvent& event, Time now, Reports& reports);
    void TellName(const InotifyEvent& event, const Place& place, Time now, Reports& reports);
    void FollowName(const InotifyEvent& event, const Place& place, Reports& reports);
    void TellArrival(const Place& place, Time now, Reports& reports);

    void Settle(WatchedRule& rule, const Explanation& explanation, Reports& reports);
    Moment At(Time now) const { return {now, quiet_}; }
    bool WasArrivalTold(const KnownFile& known) const;
    void RetryLater();
    void TellOnce(const Place& key, const ChangeSide& side, FileOperation operation, Reports& reports);
    void LogFailure(const WatchedRule& rule, int error);
    bool Know(const WatchedRule& rule);
    void ForgetUnused(int file);
    bool ReadState(int file, FileState& state);
    int FileAt(const Place& place) const;
    bool IsNameOfRule(const Place& place) const;
    void Look(int file, const std::optional<Place>& place, Occasion occasion, Time now, Reports& reports);
    void TakeLinkCounts(const std::set<int>& files);

    void LearnEntry(const Place& place);
    void HandleEntry(const InotifyEvent& event, const Place& place, Time now, Reports& reports);
    void Compare(Time now, Reports& reports);
    void CompareEntries(int directory, Time now, Reports& reports);
    std::optional<std::string> DirectoryPath(int directory) const;

    Inotify inotify_;
    WatchTable watches_{inotify_};
    WatchedRules rules_;
    std::map<int, KnownFile> files_;  // what the rules' paths lead to, by watch
    std::map<int, Entries> entries_;  // of directories that have a rule, by watch
    RenamePairs pairs_;
    std::set<std::pair<Place, FileOperation>> told_;  // of the present event
    Time quiet_;                                      // when no event waited last
    std::optional<Time> restDue_;                     // when the last writer has rested, if no event waits then
    std::optional<Time> lossSince_;
    std::optional<Time> retry_;  // of rules that are not complete
    LogPacer lossPacer_;
    LogPacer failurePacer_;
};

}  // namespace Host
