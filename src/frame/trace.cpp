#include "frame/trace.h"

// Nobody asks a running module for its reasons.

bool Trace::Result(Test /*test*/, int /*pid*/, bool outcome, const Facts& /*facts*/) {
    return outcome;
}

void Trace::Limit(Test /*test*/, long long /*limit*/) {}
