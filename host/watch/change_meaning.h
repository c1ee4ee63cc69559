// The meaning of a change: of a path, of a directory's entry or of a file.
#pragma once

#include <optional>
#include <string>

#include "host/watch/file_state.h"
#include "host/watch/watch_rule.h"

namespace Host {

// Why two states are compared.
enum class Cause {
    // The path or entry leads to another file than before, to its first one, or to none any more:
    nameReported,  // something happened to the last name, which is reported as a change of its own
    pathChanged,   // something on the path was made, removed or replaced
    moved,         // the file itself or a directory on the path was moved
    movedHere,     // the awaited name was moved there, or a file system was mounted or unmounted
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
    // The file has come to where there was none, and its writer may not be done.
    bool isArrival = false;
    // The AttributeDetail to report as FILE_ATTRIBUTE; empty for no report.
    std::string attributes;
    // A lower link count is not reported yet: the name that has gone may be a watched one, which is a change of its
    // own.
    bool linksWait = false;
};

// The meaning of the change from before to after, the states of the target of a path, of an entry or of a file. Without
// a state there is no file.
// REQUIRES: both states for the causes of a file that is the same. Pure.
Meaning MeaningOf(const std::optional<FileState>& before, const std::optional<FileState>& after, Cause cause);

}  // namespace Host
