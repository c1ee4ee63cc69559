#include "host/watch/loss_recovery.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <set>
#include <utility>

#include "host/base/log.h"
#include "host/watch/content_changes.h"

namespace Host {

namespace {

// An endless flood of events must not delay the comparison forever.
constexpr std::chrono::seconds longestLoss(1);

// A shortage may last for a while.
constexpr std::chrono::seconds shortagePause(1);

}  // namespace

void LossRecovery::Begin(Clock::Time now) {
    due_ = std::min(due_.value_or(now), now);
    if (lossPacer_.MayLog()) {
        LogWarning(
            "the kernel dropped file events, its queue was full; comparing the watched paths with their last known "
            "state (see fs.inotify.max_queued_events)");
    }
}

void LossRecovery::Recover(Clock::Time now, bool isQuiet, std::vector<Change>& changes) {
    if (!due_ || *due_ > now || (!isQuiet && now - *due_ < longestLoss)) {
        return;
    }
    due_.reset();
    CompareRules(now, changes);
    for (auto& [directory, entries] : state_.known.Directories()) {
        CompareDirectory(directory, entries, now, changes);
    }
}

void LossRecovery::CompareRules(Clock::Time now, std::vector<Change>& changes) {
    std::set<int> compared;
    for (auto& [handle, rule] : state_.rules) {
        const int before = rule.file;
        follower_.Follow(rule, Cause::pathChanged, now, changes);
        if (rule.file >= 0 && rule.file == before && compared.insert(rule.file).second) {
            LookAtFile(state_, rule.file, std::nullopt, Cause::eventsLost, state_.quiet.At(now), changes);
        }
    }
}

void LossRecovery::CompareDirectory(int directory, KnownFiles::Entries& entries, Clock::Time now,
                                    std::vector<Change>& changes) {
    const std::optional<std::string> path = state_.DirectoryPath(directory);
    Listing found;
    if (!path) {
        return;
    }
    const int error = ListDirectory(*path, KnownFiles::mostEntries, found);
    if (error != 0 && error != E2BIG) {
        if (IsShortage(error)) {
            due_ = now + shortagePause;
        }
        return;
    }
    const bool wereAll = std::exchange(entries.areAll, error == 0);
    CompareMissing(directory, *path, found, entries, changes);
    for (const auto& [name, state] : found) {
        if (const auto known = entries.files.find(name); known != entries.files.end()) {
            CompareEntry({directory, name}, state, known->second, now, changes);
        } else {
            TakeNewEntry({directory, name}, state, entries, wereAll, changes);
        }
    }
}

// Reports known entries that are gone. Adds those to found that exist but were not listed: the listing of a large
// directory ends at its limit.
void LossRecovery::CompareMissing(int directory, const std::string& path, Listing& found, KnownFiles::Entries& entries,
                                  std::vector<Change>& changes) {
    for (auto entry = entries.files.begin(); entry != entries.files.end();) {
        FileState state;
        if (found.contains(entry->first)) {
            ++entry;
        } else if (ReadFileState(JoinPath(path, entry->first), state)) {
            found.emplace(entry->first, state);
            ++entry;
        } else if (errno != ENOENT && errno != ENOTDIR) {
            ++entry;
        } else {
            const Meaning meaning = MeaningOf(entry->second.state, std::nullopt, Cause::relisted);
            AppendEntry({directory, entry->first}, meaning.operation, {}, changes);
            entry = entries.files.erase(entry);
        }
    }
}

void LossRecovery::CompareEntry(const Place& place, const FileState& state, KnownFile& known, Clock::Time now,
                                std::vector<Change>& changes) {
    if (IsSameFile(known.state, state)) {
        const Finding finding = Observe(known, state, Cause::eventsLost, state_.quiet.At(now));
        AppendEntry(place, finding.isModified ? std::optional(FILE_MODIFIED) : std::nullopt, {}, changes);
        AppendEntry(place, finding.attributes.empty() ? std::nullopt : std::optional(FILE_ATTRIBUTE),
                    finding.attributes, changes);
        return;
    }
    const FileState before = known.state;
    known = KnownFile();
    known.state = state;
    AppendEntry(place, MeaningOf(before, state, Cause::relisted).operation, {}, changes);
}

void LossRecovery::TakeNewEntry(const Place& place, const FileState& state, KnownFiles::Entries& entries, bool wereAll,
                                std::vector<Change>& changes) {
    if (KnownFile* const known = entries.FindOrMake(place.name)) {
        known->state = state;
    }
    // Otherwise the entry may only have been unknown.
    if (wereAll) {
        AppendEntry(place, MeaningOf(std::nullopt, state, Cause::relisted).operation, {}, changes);
    }
}

void LossRecovery::AppendEntry(const Place& place, std::optional<FileOperation> operation, const std::string& detail,
                               std::vector<Change>& changes) {
    // A name with its own rule is compared by CompareRules.
    if (operation && !state_.IsRuleName(place)) {
        changes.push_back(
            {.operation = *operation, .side = SideOfName(state_.rules, state_.watches, place), .detail = detail});
    }
}

}  // namespace Host
