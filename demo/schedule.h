// When the module's next scans are due.
#pragma once

#include <string>

#include "module/published.h"

namespace Host {

// The times of the module's scans, in seconds since its start. The demonstration ends before the second period scan.
constexpr double periodScanSeconds = Published::firstPeriodScanMs / 1000.0;
constexpr double firstSweepSeconds = Published::firstShortCommandSweepMs / 1000.0;
constexpr double sweepIntervalSeconds = Published::shortCommandSweepIntervalMs / 1000.0;

// For example "period scan in 12 s, short-command sweep in 3 s"; seconds is the time since the module's start.
std::string CountdownText(double seconds);

}  // namespace Host
