#include "host/watch/known_file.h"

namespace Host {

namespace {

bool IsModified(KnownFile& known, const FileState& now, Occasion occasion, Moment moment) {
    if (occasion == Occasion::loss) {
        return ContentMayDifferUnseen(known.state, now) && known.burst.Begins(moment);
    }
    if (occasion != Occasion::closed) {
        return false;
    }
    // Writes to a mapping of the file make no event of their own.
    if (ContentMayDiffer(known.state, now)) {
        return known.burst.Begins(moment);
    }
    known.burst.End();
    return false;
}

}  // namespace

Finding Observe(KnownFile& known, const FileState& now, Occasion occasion, Moment moment) {
    Finding finding;
    finding.isModified = IsModified(known, now, occasion, moment);
    if (now.links == 0) {
        // It has lost its last name, which is told as the end of that name.
        return finding;
    }
    FileState told = now;
    if (IsDirectory(now) || now.links >= known.state.links || occasion == Occasion::linksDue ||
        occasion == Occasion::loss) {
        known.linksDue.reset();
    } else {
        told.links = known.state.links;
        known.linksDue = known.linksDue.value_or(moment.now + linksPatience);
    }
    finding.attributes = AttributeDetail(known.state, told);
    known.state = told;
    return finding;
}

}  // namespace Host
