// From a change to the reports of it: whom it is told, and under which names.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/monitor.h"
#include "host/watch/watched_rule.h"

namespace Host {

using TavUtils::Monitor::FileOperation;
using enum TavUtils::Monitor::FileOperation;

// One call of a rule's callback.
struct ChangeReport {
    int handle = 0;
    FileOperation operation = FILE_MODIFIED;
    std::optional<std::string> path;
    std::optional<std::string> otherPath;
    std::string detail;
};

// How one rule calls what has changed.
struct Spelling {
    const TavUtils::Monitor::FileWatchCallback* listener = nullptr;  // only compared, never called
    int handle = 0;
    int rank = 0;             // the lower, the closer to the path as the rule gives it
    unsigned operations = 0;  // a bit for each operation that the rule asks for
    std::string path;
};

// What has changed, in the words of all rules that see it.
struct ChangeSide {
    std::vector<Spelling> spellings;
    std::string plainPath;  // in nobody's words; empty if unknown
};

// A name in a directory: it was made, removed or moved.
ChangeSide SideOfName(const WatchedRules& rules, const WatchTable& watches, const Place& place);

// What is in a file. place is the name under which it was changed, if known.
ChangeSide SideOfFile(const WatchedRules& rules, int file, const std::optional<Place>& place);

// One report for each listener that some rule has asked for the operation, under the path of its closest rule.
void AppendReports(const ChangeSide& side, FileOperation operation, const std::string& detail,
                   std::vector<ChangeReport>& reports);

// A move of which both names are known: operation 4, or for listeners that do not ask for that, 5 with the name that it
// went to or 6 with the name that it came from.
void AppendMove(const ChangeSide& from, const ChangeSide& to, std::vector<ChangeReport>& reports);

// A move of which one name is known: operation 5 or 6, or 4 for listeners that do not ask for these.
void AppendHalfMove(const ChangeSide& side, FileOperation operation, std::vector<ChangeReport>& reports);

}  // namespace Host
