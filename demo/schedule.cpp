#include "demo/schedule.h"

#include <cmath>

#include "module/published.h"

namespace Host {
namespace {

std::string WholeSeconds(double seconds) {
    return std::to_string(static_cast<int>(std::ceil(seconds))) + " s";
}

}  // namespace

std::string CountdownText(double seconds) {
    const double done = std::floor((seconds - firstSweepSeconds) / sweepIntervalSeconds);
    const double nextSweep = firstSweepSeconds + (std::fmax(done, -1) + 1) * sweepIntervalSeconds;
    const std::string period = seconds < periodScanSeconds
                                   ? Published::periodScan + (" in " + WholeSeconds(periodScanSeconds - seconds))
                                   : Published::periodScan + std::string(" running");
    return period + ", short-command sweep in " + WholeSeconds(nextSweep - seconds);
}

}  // namespace Host
