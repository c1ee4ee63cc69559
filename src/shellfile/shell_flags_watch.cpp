#include "shellfile/shell_flags_watch.h"

#include <sys/fanotify.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>

#include "agent/monitor.h"
#include "agent/threads.h"
#include "frame/log.h"
#include "frame/pacing.h"
#include "shellfile/abnormal_shell_event.h"
#include "shellfile/shell_baseline.h"

using TavUtils::Monitor::FANOTIFY_EVENT;
using enum TavUtils::Monitor::FileOperation;

static constexpr char logSource[] = "detect_shell_event";

static constexpr unsigned int closedUnwritten = FAN_CLOSE_NOWRITE;
static constexpr unsigned int stackBytes = 2000000;
static constexpr unsigned int eventPauseMicroseconds = 100;

namespace {

struct ShellAttr {
    int attr = -1;         // as FS_IOC_GETFLAGS returns them; -1 if they could not be read
    std::string attrName;  // always empty
};

}  // namespace

// Guards shellAttrs; held for map operations only.
static std::mutex attrsLock;
static std::map<std::string, ShellAttr> shellAttrs;

static std::unique_ptr<FANOTIFY_EVENT> fanotifyEvent;
static unsigned long fanotifyThread = 0;
static int fanotifyRunning = 0;  // accessed atomically, also by the loop
static TavUtils::Monitor::FanotifyLoopArgs fanotifyArgs{};

static void SetRunning(int running) {
    std::atomic_ref<int>(fanotifyRunning).store(running);
}

// Once the loop has ended, fd is -1 and this closes nothing.
static void CloseGroup(FANOTIFY_EVENT& event) {
    close(std::atomic_ref<int>(event.fd).load());
}

// False if there was no group.
static bool ReleaseGroup() {
    if (fanotifyEvent == nullptr) {
        return false;
    }
    CloseGroup(*fanotifyEvent);
    fanotifyEvent.reset();
    return true;
}

void TakeFlagsBaseline() {
    std::map<std::string, ShellAttr> fresh;
    for (const std::string& path : ShellFiles()) {
        fresh[path] = ShellAttr{.attr = GetFileExt2Flags(path), .attrName = ""};
    }
    const std::lock_guard guard(attrsLock);
    shellAttrs.swap(fresh);
}

void StartFlagsWatch() {
    if (fanotifyThread != 0) {
        return;
    }
    // An earlier start leaves its group behind if its thread could not be created.
    ReleaseGroup();
    fanotifyEvent.reset(new (std::nothrow) FANOTIFY_EVENT{});
    if (fanotifyEvent == nullptr) {
        return;
    }
    if (TavUtils::Monitor::InitFanotifyEvent(fanotifyEvent.get(), ChattrFanotifyCallback) != 0) {
        fanotifyEvent.reset();
        return;
    }
    for (const std::string& path : ShellFiles()) {
        TavUtils::Monitor::FanotifyAddWatch(fanotifyEvent.get(), path.c_str(), closedUnwritten);
    }
    fanotifyArgs = {.event = fanotifyEvent.get(), .running = &fanotifyRunning, .reserved = nullptr};
    SetRunning(1);
    fanotifyThread =
        CreateHipsThreadEx(TavUtils::Monitor::FanotifyLoop, &fanotifyArgs, stackBytes, "ChattrShellThread");
    if (fanotifyThread == 0) {
        MODULE_LOG(normalLog, LOG_LEVEL_ERROR, "Start fanotify pool thread failed.");
    }
}

void StopFlagsWatch() {
    SetRunning(0);
    if (fanotifyThread != 0) {
        CloseGroup(*fanotifyArgs.event);
        StopHipsThreadEx(fanotifyThread);
        fanotifyThread = 0;
    }
    if (ReleaseGroup()) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "shell file system attr thread stop!\n");
    }
}

static std::optional<ShellAttr> KnownAttr(const std::string& path) {
    const std::lock_guard guard(attrsLock);
    const auto known = shellAttrs.find(path);
    return known == shellAttrs.end() ? std::nullopt : std::optional(known->second);
}

static void StoreFlags(const std::string& path, int flags) {
    const std::lock_guard guard(attrsLock);
    shellAttrs[path] = ShellAttr{.attr = flags, .attrName = ""};
}

static void ReportFlags(const std::string& path, int before, int now) {
    SHELL_EVENT event;
    event.fileOperationType = FILE_ATTRIBUTE;
    event.path = path;
    event.type = "ext2_flag";
    event.from = std::to_string(before);
    event.to = std::to_string(now);
    MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "ext2_flag2");
    AddShellEvent(event);
}

static void CompareFlags(const std::string& path) {
    const std::optional<ShellAttr> known = KnownAttr(path);
    if (!known || !IsShellFile(path)) {
        return;
    }
    const int flags = GetFileExt2Flags(path);
    if (flags == -1 || flags == known->attr) {
        return;
    }
    if (known->attr == -1) {
        MODULE_LOG(normalLog, LOG_LEVEL_DETAIL, "old attr init failed.[attr=%d]", known->attr);
    } else {
        ReportFlags(path, known->attr, flags);
    }
    StoreFlags(path, flags);
}

void ChattrFanotifyCallback(long /*number*/, const char* path, unsigned int mask) {
    if (path == nullptr) {
        return;
    }
    if ((mask & closedUnwritten) != 0 && path[0] != '\0') {
        CompareFlags(path);
    }
    Pause(eventPauseMicroseconds);
}
