#include "host/watch/change_meaning.h"

namespace Host {

namespace {

bool IsOfOneFile(Cause cause) {
    return cause == Cause::written || cause == Cause::closed || cause == Cause::linksDue || cause == Cause::eventsLost;
}

Meaning MeaningForFile(const FileState& before, const FileState& after, Cause cause) {
    Meaning meaning;
    // Between open and close, each write is an event. Writes to a mapping of the file are not: only the close shows
    // them.
    if ((cause == Cause::closed && ContentMayDiffer(before, after)) ||
        (cause == Cause::eventsLost && ContentMayDifferUnseen(before, after))) {
        meaning.operation = FILE_MODIFIED;
    }
    if (after.links == 0) {
        // The file has lost its last name; the removal of that name is reported.
        return meaning;
    }
    meaning.linksWait =
        cause != Cause::linksDue && cause != Cause::eventsLost && !IsDirectory(after) && after.links < before.links;
    FileState reported = after;
    reported.links = meaning.linksWait ? before.links : after.links;
    meaning.attributes = AttributeDetail(before, reported);
    return meaning;
}

}  // namespace

Meaning MeaningOf(const std::optional<FileState>& before, const std::optional<FileState>& after, Cause cause) {
    if (IsOfOneFile(cause)) {
        return MeaningForFile(*before, *after, cause);
    }
    Meaning meaning;
    if (cause == Cause::nameReported || (!before && !after)) {
        return meaning;
    }
    if (!after) {
        meaning.operation = cause == Cause::moved ? FILE_MOVED_FROM : FILE_DELETED;
    } else if (before && (cause == Cause::relisted || IsDirectory(*before) == IsDirectory(*after))) {
        meaning.operation = FILE_MOVED_TO;
    } else if (cause == Cause::moved || cause == Cause::movedHere) {
        meaning.operation = FILE_MOVED_TO;
        meaning.isArrival = true;
    } else if (HasContent(*after)) {
        meaning.operation = FILE_MODIFIED;
        meaning.isArrival = true;
    }
    return meaning;
}

}  // namespace Host
