#include "host/watch/file_monitor.h"

#include <sys/inotify.h>

namespace Host {

namespace {

constexpr uint32_t endEvents = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
constexpr uint32_t nameEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;
constexpr uint32_t contentEvents = IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE;

FileMonitor::Reports ReportsOf(const std::vector<Change>& changes) {
    FileMonitor::Reports reports;
    for (const Change& change : changes) {
        AppendReports(change, reports);
    }
    return reports;
}

}  // namespace

ChangeListener FileMonitor::ListenerOf(int handle) const {
    const auto found = state_.rules.find(handle);
    return found == state_.rules.end() ? ChangeListener() : found->second.rule.listener;
}

int FileMonitor::Read(std::vector<InotifyEvent>& events) {
    names_.BeginBatch();
    return state_.inotify.Read(events);
}

FileMonitor::Reports FileMonitor::Handle(const InotifyEvent& event, Clock::Time now) {
    std::vector<Change> changes;
    follower_.BeginEvent();
    if ((event.mask & (contentEvents | IN_CREATE)) != 0) {
        state_.quiet.Disturb(now);
    }
    if ((event.mask & IN_IGNORED) != 0) {
        state_.watches.Forget(event.watch);
    }
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        loss_.Begin(now);
    } else if ((event.mask & endEvents) != 0) {
        follower_.FollowEnd(event, now, changes);
    } else if (!state_.watches.Has(event.watch)) {
        // The event was read before the watch was removed.
    } else if ((event.mask & nameEvents) != 0) {
        names_.Handle(event, now, changes);
    } else if ((event.mask & contentEvents) != 0) {
        contents_.Handle(event, now, changes);
    }
    return ReportsOf(changes);
}

FileMonitor::Reports FileMonitor::Tick(Clock::Time now, bool isQuiet) {
    std::vector<Change> changes;
    follower_.BeginEvent();
    if (isQuiet) {
        state_.quiet.Note(now);
    }
    names_.TakeOverdue(now, isQuiet, changes);
    contents_.TakeLinksDue(now, isQuiet, changes);
    loss_.Recover(now, isQuiet, changes);
    if (follower_.RetryDue() && *follower_.RetryDue() <= now) {
        follower_.Retry(now, changes);
    }
    return ReportsOf(changes);
}

std::optional<Clock::Time> FileMonitor::Due() const {
    // Quiet and the recovery from a loss wait for an empty queue, which each Tick finds out.
    auto due = Sooner(names_.Due(), state_.known.LinksDue());
    due = Sooner(due, follower_.RetryDue());
    due = Sooner(due, state_.quiet.Due());
    return Sooner(due, loss_.Due());
}

FileMonitor::Reports FileMonitor::FollowMounts(Clock::Time now) {
    std::vector<Change> changes;
    follower_.BeginEvent();
    follower_.FollowAll(Cause::movedHere, now, changes);
    return ReportsOf(changes);
}

}  // namespace Host
