// File watching: change reports on paths, and fanotify marks, which a loop on the caller's thread serves.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace TavUtils::Monitor {

enum MonitorType : int {
    MONITOR_FILE = 1,
};

// The kinds of change that a callback receives.
enum FileOperation : int {
    // Attributes have changed. The detail is "attribute" followed by each attribute that differs from its last known
    // value: " oaccess=OLD access=NEW" (st_mode), " ouid=OLD cuid=NEW", " ogid=OLD cgid=NEW", " olink=OLD link=NEW"
    // (link count), in decimal. A link count that changes because a watched name is removed or replaced is not
    // reported.
    FILE_ATTRIBUTE = 1,
    // The content was written, or a file with content has appeared at a path that had none.
    FILE_MODIFIED = 2,
    FILE_DELETED = 3,
    // Moved, from path to other path.
    FILE_MOVED = 4,
    // Moved from path to an unwatched place; other path is null. A rule without FILE_MOVED receives this for any move
    // away, with the other path if it is known.
    FILE_MOVED_FROM = 5,
    // Moved to path from an unwatched place; other path is null. A rule without FILE_MOVED receives this for any move,
    // with the other path if it is known, unless a rule of the same callback receives the move as FILE_MOVED_FROM.
    FILE_MOVED_TO = 6,
};

// Receives one change: (handle of the rule, path, other path of a move, always false, a FileOperation, detail text).
// Either path may be null. The monitor calls all callbacks on one thread, one after the other.
//
// One change causes one call of a callback, even if several rules that share the callback see the change: a rule on a
// file and one on its directory, or two paths to one file. The paths are spelled as in the rule that is closest to the
// change: a rule on that name comes before one on another name of the file, an earlier rule before a later one, and a
// rule on the directory comes last.
using FileWatchCallback = std::function<void(int, const char*, const char*, bool, int, const std::string&)>;

// One path to watch: a file, or a directory with its entries. Links are followed. The path need not exist yet. The
// empty path is the root directory, so that a path cut at its last "/" always names a directory. The caller clears the
// record before it sets the fields.
struct FileWatchRule {
    std::string path;
    bool onAttribute = false;  // FILE_ATTRIBUTE
    bool onModify = false;     // FILE_MODIFIED
    bool onDelete = false;     // FILE_DELETED
    bool onMove = false;       // FILE_MOVED
    bool onMovedFrom = false;  // FILE_MOVED_FROM
    bool onMovedTo = false;    // FILE_MOVED_TO
    bool onCreate = false;     // not reported
    bool onOpen = false;       // not reported
    bool onRead = false;       // not reported
    bool onReplace = false;    // keep watching the path if another file replaces this one
    int handle = 0;            // the result of AddMonitor
    std::shared_ptr<FileWatchCallback> callback;

    FileWatchRule() = default;
    FileWatchRule(const FileWatchRule&) = default;
    FileWatchRule& operator=(const FileWatchRule&) = default;
    ~FileWatchRule();
};

// A fanotify group. The descriptor is the first member, because the owner of the record closes it to end the loop.
struct FANOTIFY_EVENT {
    int fd;
    void (*callback)(long, const char*, unsigned int);
};

// The argument of FanotifyLoop.
struct FanotifyLoopArgs {
    FANOTIFY_EVENT* event;
    int* running;  // the loop ends when this is 0
    void* reserved;
};

// Starts watching the rule's path and calls the rule's callback for each change. Returns a non-zero handle, or 0 on
// failure: there is no callback; the path is not absolute, too long for the kernel, has 300 names or more, or cannot be
// looked up although it exists; or no watch is left. Any thread, including the one that runs callbacks.
int AddMonitor(const FileWatchRule& rule, MonitorType type);

// Stops watching the rule with this handle and keeps no copy of it. Waits for a running call of the rule's callback,
// unless called from a callback. Returns 0, or -1 for an unknown handle. Any thread.
int RemoveMonitor(const FileWatchRule& rule, MonitorType type);

// Opens a fanotify group and stores its descriptor and the callback in the record. Returns 0 on success; the caller
// then closes event->fd. The record must stay at its address until the loop has ended.
int InitFanotifyEvent(FANOTIFY_EVENT* event, void (*callback)(long, const char*, unsigned int));

// Marks one path for the FAN_* events of mask. While the loop runs, a file that replaces the marked one is marked at
// once, or within a second if AddMonitor would refuse the path. The callback is then called for all marked paths.
// Returns 0 on success. Any thread.
int FanotifyAddWatch(FANOTIFY_EVENT* event, const char* path, unsigned int mask);

// Thread entry; args is a FanotifyLoopArgs. Reads the group's events and calls the callback with (pid, path, mask)
// while the running flag is non-zero. path is the marked path that leads to the file; if there are several, the one
// marked first. pid is 0 for a report that stands for lost events. Accesses by this process are not reported. After the
// flag has become 0 or the descriptor was closed, the loop ends when StopHipsThreadEx waits for its thread, in other
// threads within half a second. If the descriptor was closed, the loop sets event->fd to -1, so that closing it again
// cannot close another file. Returns null.
void* FanotifyLoop(void* args);

}  // namespace TavUtils::Monitor
