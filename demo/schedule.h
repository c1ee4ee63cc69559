// When the module looks next.
#pragma once

#include <string>

namespace Host {

// The module's scans, in seconds since its start.
constexpr double periodScanSeconds = 20;  // the first one; the next is beyond the demonstration
constexpr double firstSweepSeconds = 1;   // of the short-command watcher
constexpr double sweepIntervalSeconds = 10;

// Such as "period scan in 12 s, short-command sweep in 3 s" for that many seconds after the module's start.
std::string CountdownText(double seconds);

}  // namespace Host
