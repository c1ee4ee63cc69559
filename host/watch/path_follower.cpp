#include "host/watch/path_follower.h"

#include <sys/inotify.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "host/base/log.h"

namespace Host {

namespace {

constexpr std::chrono::seconds retryPause(1);

}  // namespace

bool PathFollower::Add(int handle, const WatchRule& rule, Clock::Time now) {
    WatchedRule watched;
    watched.handle = handle;
    watched.rule = rule;
    const int error = AttachRule(watched, state_.watches);
    if (error != 0 && error != EAGAIN) {
        DetachRule(watched, state_.watches);
        LogFailure(watched, error, false);
        return false;
    }
    WatchedRule& added = state_.rules.emplace(handle, std::move(watched)).first->second;
    added.isComplete = state_.known.Learn(added) && error == 0;
    if (!added.isComplete) {
        RetryLater(now);
    }
    return true;
}

void PathFollower::Remove(int handle) {
    const auto found = state_.rules.find(handle);
    if (found == state_.rules.end()) {
        return;
    }
    const int file = found->second.file;
    DetachRule(found->second, state_.watches);
    state_.rules.erase(found);
    ForgetUnused(file);
}

void PathFollower::Follow(WatchedRule& rule, Cause cause, Clock::Time now, std::vector<Change>& changes) {
    if (rule.hasEnded) {
        return;
    }
    const int before = rule.file;
    const std::optional<FileState> stateBefore = StateOf(before);
    const Place placeBefore = rule.OwnPlace();
    const ChangeSide sideBefore = cause == Cause::nameReported ? ChangeSide() : state_.SideOfRule(rule);
    Attach(rule, cause == Cause::nameReported, now);
    if (rule.file == before) {
        return;
    }
    ForgetUnused(before);
    const Meaning meaning = MeaningOf(stateBefore, StateOf(rule.file), cause);
    if (meaning.operation) {
        const bool isGone = rule.file < 0;
        if (meaning.isArrival) {
            NoteArrival(rule.file, *meaning.operation, now);
        }
        // Two paths to one place show one change.
        if (reported_.emplace(isGone ? placeBefore : rule.OwnPlace(), *meaning.operation).second) {
            changes.push_back({*meaning.operation, isGone ? sideBefore : state_.SideOfRule(rule)});
        }
    }
    if (before >= 0 && !rule.rule.followsPath) {
        const int file = rule.file;
        DetachRule(rule, state_.watches);
        ForgetUnused(file);
        rule.hasEnded = true;
    }
}

void PathFollower::FollowAll(Cause cause, Clock::Time now, std::vector<Change>& changes) {
    for (auto& [handle, rule] : state_.rules) {
        Follow(rule, cause, now, changes);
    }
}

void PathFollower::FollowEnd(const InotifyEvent& event, Clock::Time now, std::vector<Change>& changes) {
    const bool isMove = (event.mask & IN_MOVE_SELF) != 0;
    // Otherwise the directory of the rule's name reports the end of the file too, after this event.
    const bool isOnlyEvent = isMove || (event.mask & IN_UNMOUNT) != 0;
    for (auto& [handle, rule] : state_.rules) {
        const bool isNamed = (rule.isDirectory && rule.file == event.watch) || rule.IsFinalLink(event.watch);
        if (rule.DependsOn(event.watch) || (isNamed && isOnlyEvent)) {
            Follow(rule, isMove ? Cause::moved : Cause::pathChanged, now, changes);
        } else if (isNamed) {
            // A file system that other hosts change too may have removed it without an event of the name.
            rule.isComplete = false;
            RetryLater(now);
        }
    }
}

void PathFollower::Retry(Clock::Time now, std::vector<Change>& changes) {
    retryDue_.reset();
    for (auto& [handle, rule] : state_.rules) {
        if (!rule.isComplete) {
            Follow(rule, rule.isNameReported ? Cause::nameReported : Cause::pathChanged, now, changes);
        }
    }
}

void PathFollower::Attach(WatchedRule& rule, bool isNameReported, Clock::Time now) {
    const int before = rule.file;
    const int error = AttachRule(rule, state_.watches);
    const bool isKnown = state_.known.Learn(rule);
    if (error != 0) {
        LogFailure(rule, error, true);
    }
    rule.isComplete = error == 0 && isKnown;
    rule.isNameReported = !rule.isComplete && rule.file == before && isNameReported;
    if (!rule.isComplete) {
        RetryLater(now);
    }
}

void PathFollower::ForgetUnused(int file) {
    if (!state_.IsInUse(file)) {
        state_.known.Forget(file);
    }
}

void PathFollower::RetryLater(Clock::Time now) {
    retryDue_ = retryDue_.value_or(now + retryPause);
}

std::optional<FileState> PathFollower::StateOf(int file) const {
    const KnownFile* const known = state_.known.Find(file);
    return known == nullptr ? std::nullopt : std::optional(known->state);
}

void PathFollower::NoteArrival(int file, FileOperation operation, Clock::Time now) {
    KnownFile& known = *state_.known.Find(file);
    known.arrivalReported = now;
    state_.quiet.Disturb(now);
    if (operation == FILE_MODIFIED) {
        // Further writes of its writer belong to this change.
        known.burst.Begins(state_.quiet.At(now));
    }
}

void PathFollower::LogFailure(const WatchedRule& rule, int error, bool isRetried) {
    if (error != EAGAIN && failurePacer_.MayLog()) {
        LogWarning("cannot watch %s%s: %s%s", rule.rule.path.c_str(), isRetried ? ", retrying" : "",
                   std::strerror(error), error == ENOSPC ? " (see fs.inotify.max_user_watches)" : "");
    }
}

}  // namespace Host
