#include "host/watch/file_monitor.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/base/descriptor.h"
#include "host/base/log.h"
#include "host/watch/directory_list.h"

namespace Host {

namespace {

constexpr uint32_t nameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr uint32_t contentEvents = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE;

}  // namespace

bool FileMonitor::Add(int handle, const TavUtils::Monitor::FileWatchRule& rule) {
    WatchedRule watched;
    watched.handle = handle;
    watched.rule = rule;
    const int error = AttachRule(watched, watches_);
    if (error != 0 && error != EAGAIN) {
        DetachRule(watched, watches_);
        LogFailure(watched, error);
        return false;
    }
    WatchedRule& added = rules_.emplace(handle, std::move(watched)).first->second;
    added.isComplete = Know(added) && error == 0;
    if (!added.isComplete) {
        RetryLater();
    }
    return true;
}

void FileMonitor::LogFailure(const WatchedRule& rule, int error) {
    if (error != EAGAIN && failurePacer_.MayLog()) {
        LogWarning("%s cannot be watched: %s%s", rule.rule.path.c_str(), std::strerror(error),
                   error == ENOSPC ? " (see fs.inotify.max_user_watches)" : "");
    }
}

void FileMonitor::Remove(int handle) {
    const auto found = rules_.find(handle);
    if (found == rules_.end()) {
        return;
    }
    const int file = found->second.file;
    DetachRule(found->second, watches_);
    rules_.erase(found);
    ForgetUnused(file);
}

std::shared_ptr<TavUtils::Monitor::FileWatchCallback> FileMonitor::ListenerOf(int handle) const {
    const auto found = rules_.find(handle);
    return found == rules_.end() ? nullptr : found->second.rule.callback;
}

void FileMonitor::Handle(const InotifyEvent& event, Time now, Reports& reports) {
    told_.clear();
    if ((event.mask & (contentEvents | IN_CREATE)) != 0) {
        restDue_ = now + WriteBurst::rest;
    }
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        lossSince_ = std::min(lossSince_.value_or(now), now);
        if (lossPacer_.MayLog()) {
            LogWarning(
                "the kernel has dropped file events, its queue was full: the watched paths are compared with "
                "what was known of them (see fs.inotify.max_queued_events)");
        }
    } else if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED)) != 0) {
        HandleOwnEnd(event, reports);
    } else if (!watches_.Has(event.watch)) {
        // Read before the watch was given back.
    } else if ((event.mask & nameEvents) != 0) {
        HandleName(event, now, reports);
    } else if ((event.mask & contentEvents) != 0) {
        HandleContent(event, now, reports);
    }
}

void FileMonitor::HandleOwnEnd(const InotifyEvent& event, Reports& reports) {
    const bool isMove = (event.mask & IN_MOVE_SELF) != 0;
    const bool isUntoldByName = isMove || (event.mask & IN_UNMOUNT) != 0;
    if ((event.mask & IN_IGNORED) != 0) {
        watches_.Forget(event.watch);
    }
    const Explanation explanation{isMove ? FILE_MOVED_FROM : FILE_DELETED, isMove ? FILE_MOVED_TO : FILE_MODIFIED,
                                  false};
    for (auto& [handle, rule] : rules_) {
        // The end of what has a name of the rule is left to its directory to tell, which does so only after this.
        const bool isNamed = (rule.isDirectory && rule.file == event.watch) || rule.IsLastLink(event.watch);
        const bool isAround =
            std::any_of(rule.names.begin(), rule.names.end(), [&](const Place& p) { return p.watch == event.watch; });
        const bool isAwaitedThere = rule.awaited && rule.awaited->watch == event.watch;
        if (isAround || isAwaitedThere || rule.IsOnWay(event.watch) || (isNamed && isUntoldByName)) {
            Settle(rule, explanation, reports);
        } else if (isNamed) {
            // A file system that others change too may have ended it without a word of the name.
            rule.isComplete = false;
            RetryLater();
        }
    }
}

void FileMonitor::HandleName(const InotifyEvent& event, Time now, Reports& reports) {
    const Place place{event.watch, event.name};
    TellName(event, place, now, reports);
    LearnEntry(place);
    FollowName(event, place, reports);
    if ((event.mask & IN_CREATE) != 0) {
        TellArrival(place, now, reports);
    }
}

void FileMonitor::TellName(const InotifyEvent& event, const Place& place, Time now, Reports& reports) {
    if ((event.mask & IN_CREATE) != 0) {
        return;
    }
    ChangeSide side = SideOfName(rules_, watches_, place);
    if ((event.mask & IN_DELETE) != 0) {
        AppendReports(side, FILE_DELETED, {}, reports);
    } else if ((event.mask & IN_MOVED_FROM) != 0) {
        if (const auto oldest = pairs_.Keep(event.cookie, std::move(side), now)) {
            AppendHalfMove(*oldest, FILE_MOVED_FROM, reports);
        }
    } else if (const auto from = pairs_.Take(event.cookie)) {
        AppendMove(*from, side, reports);
    } else {
        AppendHalfMove(side, FILE_MOVED_TO, reports);
    }
}

void FileMonitor::FollowName(const InotifyEvent& event, const Place& place, Reports& reports) {
    const bool isArrival = (event.mask & (IN_CREATE | IN_MOVED_TO)) != 0;
    std::set<int> left;
    for (auto& [handle, rule] : rules_) {
        if (rule.HasName(place)) {
            left.insert(rule.file);
            Settle(rule, {FILE_DELETED, FILE_MODIFIED, true}, reports);
        } else if (isArrival && rule.awaited == place) {
            Settle(rule, {FILE_DELETED, (event.mask & IN_CREATE) != 0 ? FILE_MODIFIED : FILE_MOVED_TO, false}, reports);
        } else if (rule.IsOnWay(place)) {
            Settle(rule, {}, reports);
        }
    }
    TakeLinkCounts(left);
}

// Something new that has bytes in it already: a link to another file, or a file whose writer was faster than this.
void FileMonitor::TellArrival(const Place& place, Time now, Reports& reports) {
    for (const auto& [handle, rule] : rules_) {
        if (!rule.HasName(place)) {
            continue;
        }
        const auto known = files_.find(rule.file);
        if (known != files_.end() && HasContent(known->second.state) && !WasArrivalTold(known->second)) {
            AppendReports(SideOfName(rules_, watches_, place), FILE_MODIFIED, {}, reports);
            const bool isLink = rule.names.back() != place || known->second.state.links > 1;
            if (!isLink) {
                // What its writer goes on to write belongs to this change.
                known->second.burst.Begins(At(now));
            }
        }
        return;
    }
}

// A file found behind a new directory may have an event of its own on the way.
bool FileMonitor::WasArrivalTold(const KnownFile& known) const {
    return known.arrivalTold && quiet_ - *known.arrivalTold < WriteBurst::rest;
}

void FileMonitor::HandleContent(const InotifyEvent& event, Time now, Reports& reports) {
    if (event.name.empty() && (event.mask & IN_ATTRIB) != 0) {
        // A link on the way may have lost its name.
        for (auto& [handle, rule] : rules_) {
            if (rule.IsOnWay(event.watch)) {
                Settle(rule, {}, reports);
            }
        }
    }
    std::optional<Place> place;
    int file = event.watch;
    if (!event.name.empty()) {
        place = Place{event.watch, event.name};
        file = FileAt(*place);
        if (file < 0) {
            HandleEntry(event, *place, now, reports);
            return;
        }
        LearnEntry(*place);
    }
    const auto known = files_.find(file);
    if (known == files_.end()) {
        return;
    }
    if ((event.mask & IN_MODIFY) != 0 && known->second.burst.Begins(At(now))) {
        AppendReports(SideOfFile(rules_, file, place), FILE_MODIFIED, {}, reports);
    }
    Look(file, place, (event.mask & IN_CLOSE_WRITE) != 0 ? Occasion::closed : Occasion::changed, now, reports);
}

void FileMonitor::Look(int file, const std::optional<Place>& place, Occasion occasion, Time now, Reports& reports) {
    const auto known = files_.find(file);
    FileState state;
    if (known == files_.end() || !ReadState(file, state)) {
        return;
    }
    const Finding finding = Observe(known->second, state, occasion, At(now));
    if (finding.isModified) {
        AppendReports(SideOfFile(rules_, file, place), FILE_MODIFIED, {}, reports);
    }
    if (!finding.attributes.empty()) {
        AppendReports(SideOfFile(rules_, file, place), FILE_ATTRIBUTE, finding.attributes, reports);
    }
}

// A watched name of these files has gone, and that was told: the lower link count is no other change.
void FileMonitor::TakeLinkCounts(const std::set<int>& files) {
    for (const int file : files) {
        const auto known = files_.find(file);
        FileState state;
        if (known != files_.end() && ReadState(file, state) && state.links < known->second.state.links) {
            known->second.state.links = state.links;
            known->second.linksDue.reset();
        }
    }
}

void FileMonitor::Settle(WatchedRule& rule, const Explanation& explanation, Reports& reports) {
    if (rule.hasEnded) {
        return;
    }
    const int before = rule.file;
    const Place keyBefore = rule.Own();
    const bool wasDirectory = rule.isDirectory;
    const auto side = [&] {
        return rule.names.empty() ? SideOfFile(rules_, rule.file, std::nullopt)
                                  : SideOfName(rules_, watches_, rule.names.front());
    };
    const ChangeSide sideBefore = explanation.isTold ? ChangeSide() : side();
    const int error = AttachRule(rule, watches_);
    const bool isKnown = Know(rule);
    if (error != 0) {
        LogFailure(rule, error);
    }
    rule.isComplete = error == 0 && isKnown;
    rule.isTold = !rule.isComplete && rule.file == before && explanation.isTold;
    if (!rule.isComplete) {
        RetryLater();
    }
    if (rule.file == before) {
        return;
    }
    ForgetUnused(before);
    const auto known = files_.find(rule.file);
    if (explanation.isTold) {
        // Nothing to add.
    } else if (rule.file < 0) {
        TellOnce(keyBefore, sideBefore, explanation.vanished, reports);
    } else if (before >= 0 && rule.isDirectory == wasDirectory) {
        TellOnce(rule.Own(), side(), FILE_MOVED_TO, reports);
    } else if (HasContent(known->second.state) || explanation.appeared == FILE_MOVED_TO) {
        const Time now = std::chrono::steady_clock::now();
        known->second.arrivalTold = now;
        restDue_ = now + WriteBurst::rest;
        if (explanation.appeared == FILE_MODIFIED) {
            // What its writer goes on to write belongs to this change.
            known->second.burst.Begins(At(now));
        }
        TellOnce(rule.Own(), side(), explanation.appeared, reports);
    }
    if (before >= 0 && !rule.rule.onReplace) {
        const int file = rule.file;
        DetachRule(rule, watches_);
        ForgetUnused(file);
        rule.hasEnded = true;
    }
}

void FileMonitor::RetryLater() {
    retry_ = retry_.value_or(std::chrono::steady_clock::now() + std::chrono::seconds(1));
}

// Two paths may be one place: then it is one change.
void FileMonitor::TellOnce(const Place& key, const ChangeSide& side, FileOperation operation, Reports& reports) {
    if (told_.emplace(key, operation).second) {
        AppendReports(side, operation, {}, reports);
    }
}

// False if the entries of the directory could not be listed for want of something.
bool FileMonitor::Know(const WatchedRule& rule) {
    if (rule.file < 0) {
        return true;
    }
    if (!files_.contains(rule.file)) {
        files_[rule.file].state = rule.state;
    }
    if (rule.isDirectory && !entries_.contains(rule.file)) {
        std::map<std::string, FileState> found;
        if (IsShortage(ListDirectory(rule.rule.path, mostEntries, found))) {
            return false;
        }
        Entries& entries = entries_[rule.file];
        for (const auto& [name, each] : found) {
            entries[name].state = each;
        }
    }
    return true;
}

void FileMonitor::ForgetUnused(int file) {
    const bool isUsed =
        std::any_of(rules_.begin(), rules_.end(), [&](const auto& each) { return each.second.file == file; });
    if (!isUsed) {
        files_.erase(file);
        entries_.erase(file);
    }
}

int FileMonitor::FileAt(const Place& place) const {
    for (const auto& [handle, rule] : rules_) {
        if (rule.file >= 0 && !rule.names.empty() && rule.names.back() == place) {
            return rule.file;
        }
    }
    return -1;
}

bool FileMonitor::IsNameOfRule(const Place& place) const {
    return std::any_of(rules_.begin(), rules_.end(), [&](const auto& each) { return each.second.HasName(place); });
}

// The path may lead to another file already, of which the events are still to come.
bool FileMonitor::ReadState(int file, FileState& state) {
    for (const auto& [handle, rule] : rules_) {
        if (rule.file == file) {
            const Descriptor found = OpenRulePath(rule);
            if (found.IsOpen() && watches_.IsBehind(found.Get(), file) && ReadFileState(found.Get(), state)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace Host
