#include "frame/trace.h"

// The module that ships does not record decisions.

bool Trace::Result(Test /*test*/, int /*pid*/, bool outcome, const Facts& /*facts*/) {
    return outcome;
}

void Trace::Limit(Test /*test*/, long long /*limit*/) {}
