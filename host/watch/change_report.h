// From a change to the reports of it: which listeners get it, and under which names.
#pragma once

#include <string>
#include <vector>

#include "host/watch/change_side.h"
#include "host/watch/watch_rule.h"

namespace Host {

// One change as all rules see it.
struct Change {
    FileOperation operation = FILE_MODIFIED;
    ChangeSide side = {};     // of a move both names of which are known: the name that was left
    std::string detail = {};  // of FILE_ATTRIBUTE
    // The kernel has shown the move of a name. Listeners that do not ask for the operation then get another operation
    // of moves, if they ask for that.
    bool isRename = false;
    ChangeSide target = {};  // of FILE_MOVED: the new name
};

// Appends one report for each listener that asks for the change, under the path of its closest rule.
//
// FILE_MOVED is reported as FILE_MOVED_FROM or FILE_MOVED_TO to listeners that do not ask for FILE_MOVED, with the
// other name; a rename of which one name is known is reported as FILE_MOVED to those that ask for that alone.
void AppendReports(const Change& change, std::vector<ChangeReport>& reports);

}  // namespace Host
