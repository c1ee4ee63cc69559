#include "host/watch/content_changes.h"

#include <sys/inotify.h>

#include <string>

namespace Host {

namespace {

Cause CauseOf(const InotifyEvent& event) {
    return (event.mask & IN_CLOSE_WRITE) != 0 ? Cause::closed : Cause::written;
}

void AppendFinding(const Finding& finding, const WatchState& state, int file, const std::optional<Place>& place,
                   std::vector<Change>& changes) {
    if (finding.isModified) {
        changes.push_back({.operation = FILE_MODIFIED, .side = SideOfFile(state.rules, file, place)});
    }
    if (!finding.attributes.empty()) {
        changes.push_back(
            {.operation = FILE_ATTRIBUTE, .side = SideOfFile(state.rules, file, place), .detail = finding.attributes});
    }
}

}  // namespace

void LookAtFile(WatchState& state, int file, const std::optional<Place>& place, Cause cause, Moment moment,
                std::vector<Change>& changes) {
    KnownFile* const known = state.known.Find(file);
    FileState now;
    if (known != nullptr && state.ReadState(file, now)) {
        AppendFinding(Observe(*known, now, cause, moment), state, file, place, changes);
    }
}

void ContentChanges::Handle(const InotifyEvent& event, Clock::Time now, std::vector<Change>& changes) {
    const Moment moment = state_.quiet.At(now);
    if (!event.name.empty()) {
        const Place place{event.watch, event.name};
        const int file = state_.FileAt(place);
        if (file < 0) {
            HandleEntry(event, place, moment, changes);
        } else {
            state_.LearnEntry(place);
            HandleFile(event, file, place, moment, changes);
        }
        return;
    }
    if ((event.mask & IN_ATTRIB) != 0) {
        // A link of the path may have lost its name.
        for (auto& [handle, rule] : state_.rules) {
            if (rule.GoesThrough(event.watch)) {
                follower_.Follow(rule, Cause::pathChanged, now, changes);
            }
        }
    }
    HandleFile(event, event.watch, std::nullopt, moment, changes);
}

void ContentChanges::TakeLinksDue(Clock::Time now, bool isQuiet, std::vector<Change>& changes) {
    for (const int file : state_.known.TakeLinksDue(now, isQuiet)) {
        LookAtFile(state_, file, std::nullopt, Cause::linksDue, state_.quiet.At(now), changes);
    }
}

void ContentChanges::HandleFile(const InotifyEvent& event, int file, const std::optional<Place>& place, Moment moment,
                                std::vector<Change>& changes) {
    KnownFile* const known = state_.known.Find(file);
    if (known == nullptr) {
        return;
    }
    if ((event.mask & IN_MODIFY) != 0 && known->burst.Begins(moment)) {
        AppendFinding({.isModified = true}, state_, file, place, changes);
    }
    LookAtFile(state_, file, place, CauseOf(event), moment, changes);
}

// Handles an entry of a directory with a rule; the entry has no rule of its own.
void ContentChanges::HandleEntry(const InotifyEvent& event, const Place& place, Moment moment,
                                 std::vector<Change>& changes) {
    const auto path = state_.DirectoryPath(place.watch);
    const auto directory = state_.known.Directories().find(place.watch);
    if (!path || directory == state_.known.Directories().end()) {
        return;
    }
    auto& entries = directory->second.files;
    const auto known = entries.find(place.name);
    const bool isKnown = known != entries.end();
    if ((event.mask & IN_MODIFY) != 0 && (!isKnown || known->second.burst.Begins(moment))) {
        AppendFinding({.isModified = true}, state_, -1, place, changes);
    }
    FileState state;
    if (!isKnown || !ReadFileState(JoinPath(*path, place.name), state)) {
        state_.known.LearnEntry(place, *path);
        return;
    }
    const Finding finding = Observe(known->second, state, CauseOf(event), moment);
    if (known->second.linksDue) {
        // The removal of the other name is reported by itself.
        known->second.linksDue.reset();
        known->second.state.links = state.links;
    }
    AppendFinding(finding, state_, -1, place, changes);
}

}  // namespace Host
