#include "host/watch/name_changes.h"

#include <sys/inotify.h>

#include <algorithm>
#include <utility>

namespace Host {

void NameChanges::Handle(const InotifyEvent& event, Clock::Time now, std::vector<Change>& changes) {
    const Place place{event.watch, event.name};
    if ((event.mask & IN_CREATE) == 0) {
        NoteName(event, place, now, changes);
    }
    state_.LearnEntry(place);
    FollowName(event, place, now, changes);
    if ((event.mask & IN_CREATE) != 0) {
        NoteContent(place, now, changes);
    }
}

void NameChanges::TakeOverdue(Clock::Time now, bool isQuiet, std::vector<Change>& changes) {
    for (ChangeSide& side : pairs_.TakeOverdue(now, isQuiet)) {
        changes.push_back({.operation = FILE_MOVED_FROM, .side = std::move(side), .isRename = true});
    }
}

void NameChanges::NoteName(const InotifyEvent& event, const Place& place, Clock::Time now,
                           std::vector<Change>& changes) {
    ChangeSide side = SideOfName(state_.rules, state_.watches, place);
    if ((event.mask & IN_DELETE) != 0) {
        changes.push_back({.operation = FILE_DELETED, .side = std::move(side)});
    } else if ((event.mask & IN_MOVED_FROM) != 0) {
        if (auto oldest = pairs_.Keep(event.cookie, std::move(side), now)) {
            changes.push_back({.operation = FILE_MOVED_FROM, .side = std::move(*oldest), .isRename = true});
        }
    } else if (auto from = pairs_.Take(event.cookie)) {
        changes.push_back(
            {.operation = FILE_MOVED, .side = std::move(*from), .isRename = true, .target = std::move(side)});
    } else {
        changes.push_back({.operation = FILE_MOVED_TO, .side = std::move(side), .isRename = true});
    }
}

// Follows the rules whose paths contain the name.
void NameChanges::FollowName(const InotifyEvent& event, const Place& place, Clock::Time now,
                             std::vector<Change>& changes) {
    const bool isCreation = (event.mask & IN_CREATE) != 0;
    const bool isArrival = isCreation || (event.mask & IN_MOVED_TO) != 0;
    std::set<int> left;
    for (auto& [handle, rule] : state_.rules) {
        if (rule.HasName(place)) {
            left.insert(rule.file);
            follower_.Follow(rule, Cause::nameReported, now, changes);
        } else if (isArrival && rule.awaited == place) {
            follower_.Follow(rule, isCreation ? Cause::pathChanged : Cause::movedHere, now, changes);
        } else if (rule.GoesThrough(place)) {
            follower_.Follow(rule, Cause::pathChanged, now, changes);
        }
    }
    TakeLinkCounts(left);
}

// A watched name of these files was removed, and that is reported: the lower link count is not another change.
void NameChanges::TakeLinkCounts(const std::set<int>& files) {
    for (const int file : files) {
        KnownFile* const known = state_.known.Find(file);
        FileState state;
        if (known != nullptr && state_.ReadState(file, state) && state.links < known->state.links) {
            known->state.links = state.links;
            known->linksDue.reset();
        }
    }
}

// Reports a new name whose file has content already: a link to another file, or a file written before this event was
// handled.
void NameChanges::NoteContent(const Place& place, Clock::Time now, std::vector<Change>& changes) {
    const auto named = std::find_if(state_.rules.begin(), state_.rules.end(),
                                    [&](const auto& each) { return each.second.HasName(place); });
    if (named == state_.rules.end()) {
        return;
    }
    const WatchedRule& rule = named->second;
    KnownFile* const known = state_.known.Find(rule.file);
    const Moment moment = state_.quiet.At(now);
    if (known == nullptr || !MeaningOf(std::nullopt, known->state, Cause::pathChanged).operation ||
        WasArrivalReported(*known, moment)) {
        return;
    }
    changes.push_back({.operation = FILE_MODIFIED, .side = SideOfName(state_.rules, state_.watches, place)});
    const bool isLink = rule.names.back() != place || known->state.links > 1;
    if (!isLink) {
        // Further writes of its writer belong to this change.
        known->burst.Begins(moment);
    }
}

}  // namespace Host
