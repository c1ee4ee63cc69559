#include "host/watch/known_file.h"

namespace Host {

bool WriteBurst::Begins(Moment moment) {
    const bool begins = !open_ || moment.quiet - last_ >= rest || moment.now - begun_ >= longest;
    if (begins) {
        begun_ = moment.now;
    }
    open_ = true;
    last_ = moment.now;
    return begins;
}

void QuietTime::Note(Clock::Time now) {
    last_ = now;
    if (due_ && *due_ <= now) {
        due_.reset();
    }
}

bool WasArrivalReported(const KnownFile& known, Moment moment) {
    return known.arrivalReported && moment.quiet - *known.arrivalReported < WriteBurst::rest;
}

Finding Observe(KnownFile& known, const FileState& now, Cause cause, Moment moment) {
    const Meaning meaning = MeaningOf(known.state, now, cause);
    Finding finding;
    if (meaning.operation) {
        finding.isModified = known.burst.Begins(moment);
    } else if (cause == Cause::closed) {
        known.burst.End();
    }
    if (now.links == 0) {
        return finding;
    }
    finding.attributes = meaning.attributes;
    const unsigned long linksBefore = known.state.links;
    known.state = now;
    if (meaning.linksWait) {
        known.state.links = linksBefore;
        known.linksDue = known.linksDue.value_or(moment.now + linksPatience);
    } else {
        known.linksDue.reset();
    }
    return finding;
}

}  // namespace Host
