// The contract's file watching. Its types are converted here and used nowhere else in this room.
#include "agent/monitor.h"

#include <atomic>
#include <utility>

#include "host/base/thread_refusal.h"
#include "host/watch/fanotify_group.h"
#include "host/watch/fanotify_reader.h"
#include "host/watch/monitor_service.h"

namespace TavUtils::Monitor {

namespace {

const char* TextOf(const std::optional<std::string>& path) {
    return path ? path->c_str() : nullptr;
}

unsigned OperationsOf(const FileWatchRule& rule) {
    const std::pair<bool, FileOperation> wishes[] = {
        {rule.onAttribute, FILE_ATTRIBUTE}, {rule.onModify, FILE_MODIFIED},      {rule.onDelete, FILE_DELETED},
        {rule.onMove, FILE_MOVED},          {rule.onMovedFrom, FILE_MOVED_FROM}, {rule.onMovedTo, FILE_MOVED_TO}};
    unsigned operations = 0;
    for (const auto& [isWanted, operation] : wishes) {
        operations |= isWanted ? Host::OperationBit(operation) : 0;
    }
    return operations;
}

Host::WatchRule RuleOf(const FileWatchRule& rule) {
    Host::WatchRule own;
    own.path = rule.path;
    own.operations = OperationsOf(rule);
    own.followsPath = rule.onReplace;
    if (rule.callback && *rule.callback) {
        own.listenerId = rule.callback.get();
        own.listener = [callback = rule.callback](const Host::ChangeReport& report) {
            (*callback)(report.handle, TextOf(report.path), TextOf(report.otherPath), false, report.operation,
                        report.detail);
        };
    }
    return own;
}

// Without a loop the owner's close has to end the group. Its duplicate would keep it, with marks whose events nobody
// reads.
void ReleaseWithoutLoop(void* args) {
    if (const auto* const given = static_cast<const FanotifyLoopArgs*>(args); given != nullptr) {
        Host::FanotifyGroups::Instance().Forget(given->event);
    }
}

}  // namespace

FileWatchRule::~FileWatchRule() = default;

int AddMonitor(const FileWatchRule& rule, MonitorType type) {
    return type == MONITOR_FILE ? Host::MonitorService::Instance().Add(RuleOf(rule)) : 0;
}

int RemoveMonitor(const FileWatchRule& rule, MonitorType type) {
    return type == MONITOR_FILE ? Host::MonitorService::Instance().Remove(rule.handle) : -1;
}

int InitFanotifyEvent(FANOTIFY_EVENT* event, void (*callback)(long, const char*, unsigned int)) {
    if (event == nullptr) {
        return -1;
    }
    Host::SetRefusalHandler(FanotifyLoop, ReleaseWithoutLoop);
    event->callback = callback;
    event->fd = Host::FanotifyGroups::Instance().Open(event);
    return event->fd < 0 ? -1 : 0;
}

int FanotifyAddWatch(FANOTIFY_EVENT* event, const char* path, unsigned int mask) {
    const auto group = event == nullptr ? nullptr : Host::FanotifyGroups::Instance().Find(event);
    if (!group || path == nullptr) {
        return -1;
    }
    // Before the mark, so that the file cannot be replaced unnoticed in between.
    group->Follow(path);
    return group->marks.Add(group->duplicate.Get(), path, mask) == 0 ? 0 : -1;
}

void* FanotifyLoop(void* args) {
    const auto* const given = static_cast<const FanotifyLoopArgs*>(args);
    if (given == nullptr || given->event == nullptr || given->running == nullptr) {
        return nullptr;
    }
    const auto group = Host::FanotifyGroups::Instance().Find(given->event);
    if (group) {
        Host::FanotifyReader(*group, *given->running, given->event->callback).Run();
        if (!group->IsOwnersOpen()) {
            // The owner closes once more when this thread has ended, and the number may be reused by then.
            std::atomic_ref(given->event->fd).store(-1);
        }
        Host::FanotifyGroups::Instance().Forget(given->event);
    }
    return nullptr;
}

}  // namespace TavUtils::Monitor
