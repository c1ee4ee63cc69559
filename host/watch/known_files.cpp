#include "host/watch/known_files.h"

namespace Host {

namespace {

// An endless flood of events must not delay a lower link count forever.
constexpr std::chrono::seconds longestLinks(1);

}  // namespace

KnownFile* KnownFiles::Entries::FindOrMake(const std::string& name) {
    if (files.size() >= mostEntries && !files.contains(name)) {
        areAll = false;
        return nullptr;
    }
    return &files[name];
}

KnownFile* KnownFiles::Find(int watch) {
    const auto found = files_.find(watch);
    return found == files_.end() ? nullptr : &found->second;
}

bool KnownFiles::Learn(const WatchedRule& rule) {
    if (rule.file < 0) {
        return true;
    }
    if (!files_.contains(rule.file)) {
        files_[rule.file].state = rule.state;
    }
    if (rule.isDirectory && !entries_.contains(rule.file)) {
        std::map<std::string, FileState> found;
        const int error = ListDirectory(rule.rule.path, mostEntries, found);
        if (IsShortage(error)) {
            return false;
        }
        Entries& entries = entries_[rule.file];
        entries.areAll = error == 0;
        for (const auto& [name, each] : found) {
            entries.files[name].state = each;
        }
    }
    return true;
}

void KnownFiles::Forget(int watch) {
    files_.erase(watch);
    entries_.erase(watch);
}

void KnownFiles::LearnEntry(const Place& place, const std::string& directoryPath) {
    const auto entries = entries_.find(place.watch);
    if (entries == entries_.end()) {
        return;
    }
    FileState state;
    if (!ReadFileState(JoinPath(directoryPath, place.name), state)) {
        entries->second.files.erase(place.name);
    } else if (KnownFile* const known = entries->second.FindOrMake(place.name)) {
        if (!IsSameFile(known->state, state)) {
            *known = KnownFile();
        }
        known->state = state;
    }
}

std::vector<int> KnownFiles::TakeLinksDue(Clock::Time now, bool isQuiet) {
    std::vector<int> due;
    for (auto& [watch, known] : files_) {
        // The removal of the name may be among the waiting events.
        if (known.linksDue && *known.linksDue <= now && (isQuiet || now - *known.linksDue >= longestLinks)) {
            known.linksDue.reset();
            due.push_back(watch);
        }
    }
    return due;
}

std::optional<Clock::Time> KnownFiles::LinksDue() const {
    std::optional<Clock::Time> due;
    for (const auto& [watch, known] : files_) {
        due = Sooner(due, known.linksDue);
    }
    return due;
}

}  // namespace Host
