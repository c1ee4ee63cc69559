// A rule and the inodes that stand for its path at the moment. Its target is the file or directory that the path leads
// to.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/base/descriptor.h"
#include "host/watch/file_state.h"
#include "host/watch/watch_rule.h"
#include "host/watch/watch_table.h"

namespace Host {

// A name in a watched directory. With an empty name, the directory or file itself.
struct Place {
    int watch = -1;
    std::string name;

    bool operator==(const Place& other) const { return watch == other.watch && name == other.name; }
    bool operator<(const Place& other) const { return watch != other.watch ? watch < other.watch : name < other.name; }
};

// The watches for a path, which show when the path leads elsewhere.
struct PathWatches {
    std::vector<WatchHold> holds;      // all of them
    std::vector<int> waypoints;        // directories and links that the path goes through before its last name
    std::vector<Place> waypointNames;  // names of those directories, while a name is awaited
    std::vector<int> finalLinks;       // links that have the names below: their directories report their end
    std::vector<Place> names;          // the path's last name, then those that links lead to; none for the root
    std::optional<Place> awaited;      // the first name that is missing
};

struct WatchedRule : PathWatches {
    int handle = 0;
    WatchRule rule;

    int file = -1;  // the watch of the target; -1 if there is none
    bool isDirectory = false;
    FileState state;              // of file, as it was found
    bool isComplete = false;      // all that should be watched is, and file is the target
    bool isNameReported = false;  // if not complete: the change of the last name is reported already
    bool hasEnded = false;        // the rule does not follow its path, and its target has gone

    bool HasName(const Place& place) const;
    bool IsFinalLink(int watch) const;
    bool GoesThrough(int waypoint) const;
    bool GoesThrough(const Place& place) const;

    // True if the path may lead elsewhere when that watch ends or moves: it is of a waypoint, or of the directory of
    // one of its names or of the awaited name.
    bool DependsOn(int watch) const;

    // The place by which changes of the path itself are known.
    Place OwnPlace() const { return names.empty() ? Place{file, {}} : names.front(); }
};

// By handle, which is the order in which they came.
using WatchedRules = std::map<int, WatchedRule>;

// True for a path that can be watched, there or not: absolute or empty, which stands for the root, and such that the
// kernel would take it.
bool IsWatchablePath(const std::string& path);

// A descriptor of the target, open with O_PATH; closed if there is none.
Descriptor OpenRulePath(const WatchedRule& rule);

// Path of a name in a directory.
std::string JoinPath(const std::string& directory, const std::string& name);

// Watches the present target of the rule's path, and all that shows when the path leads elsewhere, in place of the
// watches held before. 0 if that is complete, or the errno of the failure, EAGAIN if the path did not come to rest. As
// long as the target is unknown or cannot be watched, file stays as it was.
int AttachRule(WatchedRule& rule, WatchTable& watches);

// Ends all watches of the rule.
void DetachRule(WatchedRule& rule, WatchTable& watches);

}  // namespace Host
