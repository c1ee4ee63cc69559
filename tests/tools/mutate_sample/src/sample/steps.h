#pragma once

inline constexpr int mostSteps = 3;

enum class Pace { slow, fast };

struct Walk {
    int steps = 0;
    Pace pace = Pace::slow;
};

bool IsShort(const Walk& walk);
int CountDown(int from);
const char* NameOf(Pace pace);
void Forget(Walk& walk);
