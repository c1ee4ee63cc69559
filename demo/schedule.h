// When the module looks next.
#pragma once

#include <string>

#include "module/published.h"

namespace Host {

// The module's scans, in seconds since its start. Only the first period scan is within the demonstration.
constexpr double periodScanSeconds = Published::firstPeriodScanMs / 1000.0;
constexpr double firstSweepSeconds = Published::firstShortCommandSweepMs / 1000.0;
constexpr double sweepIntervalSeconds = Published::shortCommandSweepIntervalMs / 1000.0;

// Such as "period scan in 12 s, short-command sweep in 3 s" for that many seconds after the module's start.
std::string CountdownText(double seconds);

}  // namespace Host
