// The entries of watched directories, and what is on disk against what is known.
#include <sys/inotify.h>

#include <cerrno>

#include "host/watch/directory_list.h"
#include "host/watch/file_monitor.h"

namespace Host {

namespace {

// A flood of events that does not end must not put the comparison off for ever.
constexpr std::chrono::seconds longestLoss(1);

// Nor a lower link count.
constexpr std::chrono::seconds longestLinks(1);

// What has run out may stay so for a while.
constexpr std::chrono::seconds shortagePause(1);

}  // namespace

void FileMonitor::Tick(Time now, bool isQuiet, Reports& reports) {
    told_.clear();
    if (isQuiet) {
        quiet_ = now;
        if (restDue_ && *restDue_ <= now) {
            restDue_.reset();
        }
    }
    for (const ChangeSide& side : pairs_.TakeOverdue(now, isQuiet)) {
        AppendHalfMove(side, FILE_MOVED_FROM, reports);
    }
    std::set<int> due;
    for (const auto& [file, known] : files_) {
        // The end of the name may be among the events that wait.
        if (known.linksDue && *known.linksDue <= now && (isQuiet || now - *known.linksDue >= longestLinks)) {
            due.insert(file);
        }
    }
    for (const int file : due) {
        files_[file].linksDue.reset();
        Look(file, std::nullopt, Occasion::linksDue, now, reports);
    }
    // Once nothing waits, what the events have told is not told again.
    if (lossSince_ && *lossSince_ <= now && (isQuiet || now - *lossSince_ >= longestLoss)) {
        lossSince_.reset();
        Compare(now, reports);
    }
    if (retry_ && *retry_ <= now) {
        retry_.reset();
        for (auto& [handle, rule] : rules_) {
            if (!rule.isComplete) {
                Settle(rule, {FILE_DELETED, FILE_MODIFIED, rule.isTold}, reports);
            }
        }
    }
}

std::optional<FileMonitor::Time> FileMonitor::Due() const {
    std::optional<Time> due = pairs_.Due();
    const auto include = [&](const std::optional<Time>& time) {
        if (time && (!due || *time < *due)) {
            due = time;
        }
    };
    for (const auto& [file, known] : files_) {
        include(known.linksDue);
    }
    include(retry_);
    // These wait for the queue to be empty, which is found out at once.
    include(restDue_);
    include(lossSince_);
    return due;
}

void FileMonitor::LookAtPaths(Reports& reports) {
    told_.clear();
    for (auto& [handle, rule] : rules_) {
        Settle(rule, {FILE_DELETED, FILE_MOVED_TO, false}, reports);
    }
}

void FileMonitor::Compare(Time now, Reports& reports) {
    std::set<int> compared;
    for (auto& [handle, rule] : rules_) {
        const int before = rule.file;
        Settle(rule, {}, reports);
        if (rule.file >= 0 && rule.file == before && compared.insert(rule.file).second) {
            Look(rule.file, std::nullopt, Occasion::loss, now, reports);
        }
    }
    for (const auto& [directory, entries] : entries_) {
        CompareEntries(directory, now, reports);
    }
}

void FileMonitor::CompareEntries(int directory, Time now, Reports& reports) {
    const std::optional<std::string> path = DirectoryPath(directory);
    std::map<std::string, FileState> found;
    if (!path) {
        return;
    }
    if (const int error = ListDirectory(*path, mostEntries, found); error != 0) {
        if (IsShortage(error)) {
            lossSince_ = now + shortagePause;
        }
        return;
    }
    Entries& entries = entries_[directory];
    const auto tell = [&](const std::string& name, FileOperation operation, const std::string& detail) {
        const Place place{directory, name};
        // A name that has a rule of its own is compared by that.
        if (!IsNameOfRule(place)) {
            AppendReports(SideOfName(rules_, watches_, place), operation, detail, reports);
        }
    };
    for (auto entry = entries.begin(); entry != entries.end();) {
        FileState state;
        const bool isThere = found.contains(entry->first) || ReadFileState(JoinPath(*path, entry->first), state);
        if (isThere || (errno != ENOENT && errno != ENOTDIR)) {
            ++entry;
        } else {
            tell(entry->first, FILE_DELETED, {});
            entry = entries.erase(entry);
        }
    }
    for (const auto& [name, state] : found) {
        const auto known = entries.find(name);
        if (known == entries.end()) {
            entries[name].state = state;
            if (HasContent(state)) {
                tell(name, FILE_MODIFIED, {});
            }
        } else if (!IsSameFile(known->second.state, state)) {
            known->second = KnownFile();
            known->second.state = state;
            tell(name, FILE_MOVED_TO, {});
        } else {
            const Finding finding = Observe(known->second, state, Occasion::loss, At(now));
            if (finding.isModified) {
                tell(name, FILE_MODIFIED, {});
            }
            if (!finding.attributes.empty()) {
                tell(name, FILE_ATTRIBUTE, finding.attributes);
            }
        }
    }
}

std::optional<std::string> FileMonitor::DirectoryPath(int directory) const {
    for (const auto& [handle, rule] : rules_) {
        if (rule.isDirectory && rule.file == directory) {
            return rule.rule.path;
        }
    }
    return std::nullopt;
}

// Knows what has that name now. Says nothing.
void FileMonitor::LearnEntry(const Place& place) {
    const auto entries = entries_.find(place.watch);
    const std::optional<std::string> path = DirectoryPath(place.watch);
    if (entries == entries_.end() || !path) {
        return;
    }
    FileState state;
    if (!ReadFileState(JoinPath(*path, place.name), state)) {
        entries->second.erase(place.name);
    } else if (entries->second.contains(place.name) || entries->second.size() < mostEntries) {
        KnownFile& known = entries->second[place.name];
        if (!IsSameFile(known.state, state)) {
            known = KnownFile();
        }
        known.state = state;
    }
}

void FileMonitor::HandleEntry(const InotifyEvent& event, const Place& place, Time now, Reports& reports) {
    const auto entries = entries_.find(place.watch);
    const std::optional<std::string> path = DirectoryPath(place.watch);
    if (entries == entries_.end() || !path) {
        return;
    }
    const auto known = entries->second.find(place.name);
    if ((event.mask & IN_MODIFY) != 0 && (known == entries->second.end() || known->second.burst.Begins(At(now)))) {
        AppendReports(SideOfFile(rules_, -1, place), FILE_MODIFIED, {}, reports);
    }
    FileState state;
    if (known == entries->second.end() || !ReadFileState(JoinPath(*path, place.name), state)) {
        LearnEntry(place);
        return;
    }
    const Occasion occasion = (event.mask & IN_CLOSE_WRITE) != 0 ? Occasion::closed : Occasion::changed;
    const Finding finding = Observe(known->second, state, occasion, At(now));
    if (known->second.linksDue) {
        // The end of another name is told as that.
        known->second.linksDue.reset();
        known->second.state.links = state.links;
    }
    if (finding.isModified) {
        AppendReports(SideOfFile(rules_, -1, place), FILE_MODIFIED, {}, reports);
    }
    if (!finding.attributes.empty()) {
        AppendReports(SideOfFile(rules_, -1, place), FILE_ATTRIBUTE, finding.attributes, reports);
    }
}

}  // namespace Host
