// File watching: change reports on paths, and fanotify marks served by a loop of the caller's own thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace TavUtils::Monitor {

enum MonitorType : int {
    MONITOR_FILE = 1,
};

// Receives one change: (reserved, path, other path of a move, reserved, operation 1 to 6, detail text). Either path may
// be null. Called on the monitor's own thread.
using FileWatchCallback = std::function<void(int, const char*, const char*, bool, int, const std::string&)>;

// One path to watch, a file or a directory. Zero-filled by the caller before its fields are set.
struct FileWatchRule {
    std::string path;
    bool onAttribute = false;  // operation 1
    bool onModify = false;     // operation 2
    bool onDelete = false;     // operation 3
    bool onMove = false;       // operation 4
    bool onMovedFrom = false;  // operation 5
    bool onMovedTo = false;    // operation 6
    bool onCreate = false;
    bool onOpen = false;
    bool onRead = false;
    bool onReplace = false;  // follow the path when another file takes its place
    int handle = 0;          // what AddMonitor returned
    std::shared_ptr<FileWatchCallback> callback;

    FileWatchRule() = default;
    FileWatchRule(const FileWatchRule&) = default;
    FileWatchRule& operator=(const FileWatchRule&) = default;
    ~FileWatchRule();
};

// A fanotify group. The descriptor comes first, because the owner of the record closes it to end the loop.
struct FANOTIFY_EVENT {
    int fd;
    void (*callback)(long, const char*, unsigned int);
};

// What FanotifyLoop is given.
struct FanotifyLoopArgs {
    FANOTIFY_EVENT* event;
    int* running;  // the loop runs while this is non-zero
    void* reserved;
};

// Starts watching the rule's path and calls the rule's callback for each event. Returns a non-zero handle, 0 on
// failure. Any thread.
int AddMonitor(const FileWatchRule& rule, MonitorType type);

// Ends the watch of that rule. 0 on success. Any thread.
int RemoveMonitor(const FileWatchRule& rule, MonitorType type);

// Opens a fanotify group into the record and keeps the callback. 0 on success; the caller closes event->fd.
int InitFanotifyEvent(FANOTIFY_EVENT* event, void (*callback)(long, const char*, unsigned int));

// Marks one path for the FAN_* events of mask. 0 on success.
int FanotifyAddWatch(FANOTIFY_EVENT* event, const char* path, unsigned int mask);

// Thread entry, given FanotifyLoopArgs: reads the group's events and calls the callback with (number, path, mask) while
// the running flag is non-zero. Ends when the flag is 0 or the descriptor is closed. Returns null.
void* FanotifyLoop(void* args);

}  // namespace TavUtils::Monitor
