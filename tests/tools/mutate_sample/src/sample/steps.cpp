#include "sample/steps.h"

bool IsShort(const Walk& walk) {
    return walk.steps > 0 && walk.steps <= mostSteps;
}

int CountDown(int from) {
    int rounds = 0;
    while (from > 0) {
        --from;
        ++rounds;
    }
    return rounds;
}

const char* NameOf(Pace pace) {
    switch (pace) {
        case Pace::slow:
            return "slow";
        default:
            return "fast";
    }
}

void Forget(Walk& walk) {
    walk.steps = 0;
}
