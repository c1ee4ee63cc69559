// How the rules name a changed file.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/watch/watch_table.h"
#include "host/watch/watched_rule.h"

namespace Host {

// How one rule names it.
struct Spelling {
    const void* listenerId = nullptr;
    int handle = 0;
    int rank = 0;             // the lower, the closer to the path as the rule gives it
    unsigned operations = 0;  // an OperationBit for each operation that the rule asks for
    std::string path;
};

// The spellings of all rules that see the change, in the order in which the rules were added.
struct ChangeSide {
    std::vector<Spelling> spellings;
    std::string plainPath;  // as the directory was found; empty if unknown
};

// A name in a directory: it was made, removed or moved.
ChangeSide SideOfName(const WatchedRules& rules, const WatchTable& watches, const Place& place);

// The content or the attributes of a file, -1 for an entry without a rule of its own. place is the name under which it
// was changed, if known.
ChangeSide SideOfFile(const WatchedRules& rules, int file, const std::optional<Place>& place);

}  // namespace Host
