// File watching: change reports on paths, and fanotify marks served by a loop of the caller's own thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace TavUtils::Monitor {

enum MonitorType : int {
    MONITOR_FILE = 1,
};

// A change of a path, as the number that a callback is given.
enum FileOperation : int {
    // Attributes have changed. The detail is "attribute" and then, for each that differs from what it was when it was
    // last known, " oaccess=OLD access=NEW" (st_mode), " ouid=OLD cuid=NEW", " ogid=OLD cgid=NEW", " olink=OLD
    // link=NEW" (link count), in decimal. A link count that changes because a watched name is removed or replaced is
    // not reported.
    FILE_ATTRIBUTE = 1,
    // The content is written, or content has come to a path at which there was nothing.
    FILE_MODIFIED = 2,
    FILE_DELETED = 3,
    // Moved, from path to other path.
    FILE_MOVED = 4,
    // Moved from path to where nobody watches; other path is null. A rule that does not ask for FILE_MOVED gets this
    // for any move away, with the other path if it is known.
    FILE_MOVED_FROM = 5,
    // Something has come to path from where nobody watches; other path is null. A rule that asks neither for FILE_MOVED
    // nor, at the other path, for FILE_MOVED_FROM gets this for any move, with the other path if it is known.
    FILE_MOVED_TO = 6,
};

// Receives one change: (reserved, path, other path of a move, reserved, a FileOperation, detail text). Either path may
// be null. Called on the monitor's own thread.
//
// One change is one call of a callback, however many rules share the callback and see the change: a rule on a file and
// one on its directory, or two paths to one file. The paths are spelled as the rule that is closest to the change
// spells them: the one on that very name before one on another name of the file, the one that was added first before
// others, and one on the directory last.
using FileWatchCallback = std::function<void(int, const char*, const char*, bool, int, const std::string&)>;

// One path to watch: a file, or a directory with its entries. Links are followed. The path need not be there yet. The
// empty path is the root directory, so that a path cut at its last "/" always names a directory. Zero-filled by the
// caller before its fields are set.
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
    bool onReplace = false;    // follow the path when another file takes its place
    int handle = 0;            // as AddMonitor returned it
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

// The argument of FanotifyLoop.
struct FanotifyLoopArgs {
    FANOTIFY_EVENT* event;
    int* running;  // the loop runs while this is non-zero
    void* reserved;
};

// Starts watching the rule's path and calls the rule's callback for each event. Returns a non-zero handle, 0 on
// failure: no callback, a path that is not absolute, that the kernel would not take or that has 300 names or more, a
// path that cannot be looked up for another reason than that nothing is there, no watch left. Any thread, also that of
// a callback.
int AddMonitor(const FileWatchRule& rule, MonitorType type);

// Ends the watch of that rule, known by its handle. Waits for a running call of the rule's callback, unless called on
// the callback's own thread, and keeps nothing of the rule. 0 on success, -1 for an unknown handle. Any thread.
int RemoveMonitor(const FileWatchRule& rule, MonitorType type);

// Opens a fanotify group into the record and keeps the callback. 0 on success; the caller closes event->fd. The record
// stays where it is until the loop has ended.
int InitFanotifyEvent(FANOTIFY_EVENT* event, void (*callback)(long, const char*, unsigned int));

// Marks one path for the FAN_* events of mask, and while the loop runs also a file that takes its place, a second
// later at most. 0 on success. Any thread.
int FanotifyAddWatch(FANOTIFY_EVENT* event, const char* path, unsigned int mask);

// Thread entry, given FanotifyLoopArgs: reads the group's events and calls the callback with (number, path, mask)
// while the running flag is non-zero. path is the marked path that leads to the file, of several the one marked first.
// Accesses by this process itself are not reported. When the flag is 0 or the descriptor is closed it ends as soon as
// its thread is waited for (StopHipsThreadEx), in any other thread within half a second. If the descriptor was closed,
// event->fd is -1 from then on, so that closing it once more harms nobody. Returns null.
void* FanotifyLoop(void* args);

}  // namespace TavUtils::Monitor
