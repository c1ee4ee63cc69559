// A rule and the inodes that stand for its path at the moment.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/monitor.h"
#include "host/watch/file_state.h"
#include "host/watch/watch_table.h"

namespace Host {

// A name in a watched directory. With an empty name, what is watched itself.
struct Place {
    int watch = -1;
    std::string name;

    bool operator==(const Place& other) const { return watch == other.watch && name == other.name; }
    bool operator<(const Place& other) const { return watch != other.watch ? watch < other.watch : name < other.name; }
};

struct WatchedRule {
    int handle = 0;
    TavUtils::Monitor::FileWatchRule rule;

    std::vector<WatchHold> holds;  // all that is watched for this rule
    std::vector<int> way;          // directories and links on the way: if one of them goes, the path leads elsewhere
    std::vector<int> lastLinks;    // links among what has the names: their directories tell their end
    std::vector<Place> wayNames;   // of the directories on the way, while the rule awaits a name
    std::vector<Place> names;      // the path's last name, then those that links lead to; none for the root
    std::optional<Place> awaited;  // the name on the way that is missing
    int file = -1;                 // what the path leads to, a file or a directory; -1 if nothing
    bool isDirectory = false;
    FileState state;          // of file, as it was found
    bool isComplete = false;  // all that should be watched is, and file is what the path leads to
    bool isTold = false;      // if not complete: what has happened to the name is told already
    bool hasEnded = false;    // the rule does not follow its path, and what it watched has gone

    bool HasName(const Place& place) const;
    bool IsOnWay(int watch) const;
    bool IsLastLink(int watch) const;
    bool IsOnWay(const Place& place) const;

    // The place by which changes of the path itself are known.
    Place Own() const { return names.empty() ? Place{file, {}} : names.front(); }
};

// By handle, which is the order in which they came.
using WatchedRules = std::map<int, WatchedRule>;

// True for a path that can be watched, there or not: absolute or empty, which stands for the root, and such that the
// kernel would take it.
bool IsWatchablePath(const std::string& path);

// The descriptor, open with O_PATH, of what the rule's path leads to; closed if that is nothing.
Descriptor OpenRulePath(const WatchedRule& rule);

// Path of a name in a directory.
std::string JoinPath(const std::string& directory, const std::string& name);

// Watches what the rule's path leads to now, and all that tells when it leads elsewhere, instead of what was watched
// for it before. 0 if that is complete, or the errno of the failure, EAGAIN if the path did not come to rest. As long as
// it is not known what the path leads to, or that cannot be watched, file stays what it was.
int AttachRule(WatchedRule& rule, WatchTable& watches);

// Ends all watches of the rule.
void DetachRule(WatchedRule& rule, WatchTable& watches);

}  // namespace Host
