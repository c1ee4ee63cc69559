// The names that the rules give a changed file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/watch/watch_table.h"
#include "host/watch/watched_rule.h"

namespace Host {

// The name that one rule gives it.
struct Spelling {
    const void* listenerId = nullptr;
    int handle = 0;
    int rank = 0;             // the lower, the closer to the rule's own path
    unsigned operations = 0;  // an OperationBit for each operation that the rule asks for
    std::string path;
};

// The spellings of all rules that see the change, in the order in which the rules were added.
struct ChangeSide {
    std::vector<Spelling> spellings;
    std::string plainPath;  // by the directory's real path; empty if unknown
};

// For a name in a directory that was created, removed or moved.
ChangeSide SideOfName(const WatchedRules& rules, const WatchTable& watches, const Place& place);

// For the content or the attributes of a file; file is -1 for an entry without its own rule. place is the name through
// which it was changed, if known.
ChangeSide SideOfFile(const WatchedRules& rules, int file, const std::optional<Place>& place);

}  // namespace Host
