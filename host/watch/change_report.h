// Turns a change into reports: which listeners get it, and under which names.
#pragma once

#include <string>
#include <vector>

#include "host/watch/change_side.h"
#include "host/watch/watch_rule.h"

namespace Host {

// One change as all rules see it.
struct Change {
    FileOperation operation = FILE_MODIFIED;
    ChangeSide side = {};     // for a move with two known names: the old name
    std::string detail = {};  // only for FILE_ATTRIBUTE
    // The kernel reported the move of a name. Listeners that do not ask for the operation then get another operation of
    // moves, if they ask for one.
    bool isRename = false;
    ChangeSide target = {};  // only for FILE_MOVED: the new name
};

// Appends one report per listener that asks for the change, under the path of its closest rule.
//
// Listeners that do not ask for FILE_MOVED get FILE_MOVED_FROM or FILE_MOVED_TO with the other name instead. A rename
// with one known name is reported as FILE_MOVED to listeners that ask only for that.
void AppendReports(const Change& change, std::vector<ChangeReport>& reports);

}  // namespace Host
