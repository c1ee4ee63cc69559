#include <fcntl.h>

#include <algorithm>

#include "agent/monitor.h"
#include "agent/threads.h"
#include "agent/user_info.h"
#include "tests/fakes/fake_agent.h"

using Fake::TheAgent;

namespace TavUtils {

Monitor::FileWatchRule::~FileWatchRule() = default;

int Monitor::AddMonitor(const FileWatchRule& rule, MonitorType) {
    if (TheAgent().refusedWatches.contains(rule.path)) {
        TheAgent().Note("refuse watch " + rule.path);
        return 0;
    }
    TheAgent().Note("watch " + rule.path);
    TheAgent().rules.push_back(rule);
    TheAgent().rules.back().handle = ++TheAgent().lastWatch;
    return TheAgent().lastWatch;
}

int Monitor::RemoveMonitor(const FileWatchRule& rule, MonitorType) {
    TheAgent().Note("unwatch " + rule.path);
    std::erase_if(TheAgent().rules, [&rule](const FileWatchRule& each) { return each.handle == rule.handle; });
    return 0;
}

int Monitor::InitFanotifyEvent(FANOTIFY_EVENT* event, void (*callback)(long, const char*, unsigned int)) {
    if (TheAgent().refuseFanotify) {
        TheAgent().Note("refuse fanotify");
        return -1;
    }
    TheAgent().Note("fanotify");
    TheAgent().fanotifyCallback = callback;
    event->fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    event->callback = callback;
    TheAgent().fanotifyDescriptor = event->fd;
    return 0;
}

int Monitor::FanotifyAddWatch(FANOTIFY_EVENT*, const char* path, unsigned int mask) {
    TheAgent().fanotifyMarks.push_back({path, mask});
    return 0;
}

void* Monitor::FanotifyLoop(void*) {
    return nullptr;
}

std::string UserInfo::GetUserNameByUid(unsigned int uid) {
    return "user" + std::to_string(uid);
}

std::string UserInfo::GetGroupNameByGid(unsigned int gid) {
    return "group" + std::to_string(gid);
}

}  // namespace TavUtils

unsigned long CreateHipsThreadEx(void* (*entry)(void*), void* argument, unsigned int stackBytes,
                                 const std::string& name) {
    if (TheAgent().refuseThreads) {
        TheAgent().Note("refuse thread " + name);
        return 0;
    }
    TheAgent().threads.push_back({++TheAgent().lastThread, name, entry, argument, stackBytes});
    TheAgent().Note("thread " + name);
    return TheAgent().lastThread;
}

int StopHipsThreadEx(unsigned long handle) {
    TheAgent().Note("await thread");
    for (const Fake::Thread& thread : TheAgent().threads) {
        if (thread.handle == handle && thread.entry == TavUtils::Monitor::FanotifyLoop) {
            // The real loop does the same when it ends, so that the owner's next close does nothing.
            static_cast<TavUtils::Monitor::FanotifyLoopArgs*>(thread.argument)->event->fd =
                TheAgent().descriptorLeftByLoop;
        }
    }
    return std::erase_if(TheAgent().threads, [handle](const Fake::Thread& each) { return each.handle == handle; }) == 1
               ? 0
               : -1;
}
