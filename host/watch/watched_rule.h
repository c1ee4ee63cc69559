// A rule and the inodes that its path consists of now. Its target is the file or directory that the path leads to.
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

// A name in a watched directory. With an empty name: the directory or file itself.
struct Place {
    int watch = -1;
    std::string name;

    bool operator==(const Place& other) const { return watch == other.watch && name == other.name; }
    bool operator<(const Place& other) const { return watch != other.watch ? watch < other.watch : name < other.name; }
};

// The watches that show when a path leads elsewhere.
struct PathWatches {
    std::vector<WatchHold> holds;      // all of them
    std::vector<int> waypoints;        // directories and links on the path before its last name
    std::vector<Place> waypointNames;  // names of those directories; only while a name is awaited
    std::vector<int> finalLinks;       // links with the names below; their directories report their end
    std::vector<Place> names;          // the path's last name, then those that links lead to; empty for the root
    std::optional<Place> awaited;      // the first name that is missing
};

struct WatchedRule : PathWatches {
    int handle = 0;
    WatchRule rule;

    int file = -1;  // the watch of the target; -1 if there is none
    bool isDirectory = false;
    FileState state;              // of file, when it was found
    bool isComplete = false;      // everything needed is watched, and file is the target
    bool isNameReported = false;  // if not complete: the change of the last name has been reported
    bool hasEnded = false;        // the rule does not follow its path, and its target is gone

    bool HasName(const Place& place) const;
    bool IsFinalLink(int watch) const;
    bool GoesThrough(int waypoint) const;
    bool GoesThrough(const Place& place) const;

    // True if the path may lead elsewhere when that watch ends or moves: the watch is of a waypoint, or of the
    // directory of one of the names or of the awaited name.
    bool DependsOn(int watch) const;

    // The place that identifies changes of the path itself.
    Place OwnPlace() const { return names.empty() ? Place{file, {}} : names.front(); }
};

// By handle, in the order in which the rules were added.
using WatchedRules = std::map<int, WatchedRule>;

// True if the path can be watched, whether it exists or not: it is absolute, or empty for the root, and valid for the
// kernel.
bool IsWatchablePath(const std::string& path);

// Opens the target with O_PATH. The descriptor is closed if there is none.
Descriptor OpenRulePath(const WatchedRule& rule);

// The path of a name in a directory.
std::string JoinPath(const std::string& directory, const std::string& name);

// Watches the current target of the rule's path and everything that shows when the path leads elsewhere. Replaces the
// watches held before. Returns 0 if everything is watched, otherwise an errno; EAGAIN if the path kept changing. While
// the target is unknown or cannot be watched, file keeps its value.
int AttachRule(WatchedRule& rule, WatchTable& watches);

// Ends all watches of the rule.
void DetachRule(WatchedRule& rule, WatchTable& watches);

}  // namespace Host
