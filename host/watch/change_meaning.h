// Interprets changes: of a path, of a directory's entry or of a file.
#pragma once

#include <optional>
#include <string>

#include "host/watch/file_state.h"
#include "host/watch/watch_rule.h"

namespace Host {

// Why two states are compared.
enum class Cause {
    // The path or entry leads to another file than before, to its first one, or to none any more:
    nameReported,  // something happened to the last name and is reported as its own change
    pathChanged,   // a part of the path was created, removed or replaced
    moved,         // the file itself or a directory of the path was moved
    movedHere,     // the awaited name was moved here, or a file system was mounted or unmounted
    relisted,      // the directory was listed again after a loss of events
    // It is still the same file:
    written,     // the kernel reports a change of its content or attributes
    closed,      // a writer has closed it
    linksDue,    // a lower link count has waited long enough
    eventsLost,  // events about it may have been lost
};

struct Meaning {
    // FILE_DELETED, FILE_MOVED_FROM, FILE_MOVED_TO or FILE_MODIFIED.
    std::optional<FileOperation> operation;
    // The file arrived where there was none; its writer may not have finished.
    bool isArrival = false;
    // The AttributeDetail to report as FILE_ATTRIBUTE; empty for no report.
    std::string attributes;
    // A lower link count is not reported yet: the removed name may be a watched one, which is reported as its own
    // change.
    bool linksWait = false;
};

// Returns the meaning of the change from before to after: the states of the target of a path, of an entry or of a file.
// An empty state means that there is no file. REQUIRES: both states if the cause is one of the same file. Pure.
Meaning MeaningOf(const std::optional<FileState>& before, const std::optional<FileState>& after, Cause cause);

}  // namespace Host
