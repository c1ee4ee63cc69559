// Everything that is watched, with its known state.
#pragma once

#include <optional>
#include <string>

#include "host/watch/change_side.h"
#include "host/watch/inotify.h"
#include "host/watch/known_files.h"
#include "host/watch/watch_table.h"
#include "host/watch/watched_rule.h"

namespace Host {

// One thread at a time. PathFollower adds and removes rules; event handlers look things up here.
struct WatchState {
    Inotify inotify;
    WatchTable watches{inotify};
    WatchedRules rules;
    KnownFiles known;
    QuietTime quiet;

    // The target of the rules whose path ends at that name; -1 if no rule has the name or it leads nowhere.
    int FileAt(const Place& place) const;

    // True if a rule's path has that last name, or leads to it through links.
    bool IsRuleName(const Place& place) const;

    // True if a rule's path leads to that file.
    bool IsInUse(int file) const;

    // The path of the first rule on a directory.
    std::optional<std::string> DirectoryPath(int directory) const;

    // Stores the current state of that name if a rule is on its directory. Reports nothing.
    void LearnEntry(const Place& place);

    // Reads the current state of a file that a rule's path leads to. False if no path leads to it any more.
    bool ReadState(int file, FileState& state);

    // The names that the rules give a rule's path.
    ChangeSide SideOfRule(const WatchedRule& rule) const;
};

}  // namespace Host
