// Measures passes of the period scan on a staged host of a given size. Prints one JSON object with the median pass.
//
// Usage: pass_cost PROCESSES CONNECTIONS SHELLS PASSES ADDRESS

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <vector>

#include "bench/staged_host.h"
#include "graph/reverse_shell_detector.h"
#include "tests/support/wrapped_calls.h"

// Sum of the pauses requested by the pass.
static long long pausedNs = 0;

extern "C" {

int __wrap_nanosleep(const timespec* asked, timespec* left) {
    pausedNs += static_cast<long long>(asked->tv_sec) * 1000000000LL + asked->tv_nsec;
    return __real_nanosleep(asked, left);
}
}

namespace {

struct Cost {
    double wallMs;
    double cpuMs;
    double pausedMs;

    double OwnMs() const { return wallMs - pausedMs; }
};

double ClockMs(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

Cost MeasurePass() {
    pausedNs = 0;
    const double wall = ClockMs(CLOCK_MONOTONIC);
    const double cpu = ClockMs(CLOCK_THREAD_CPUTIME_ID);
    ReverseShellDetector detector;
    detector.DetectRoutine({});
    return {.wallMs = ClockMs(CLOCK_MONOTONIC) - wall,
            .cpuMs = ClockMs(CLOCK_THREAD_CPUTIME_ID) - cpu,
            .pausedMs = static_cast<double>(pausedNs) / 1e6};
}

long PeakKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int Measure(char** arguments) {
    const StagedHost::Size size{
        .processes = atoi(arguments[1]), .connections = atoi(arguments[2]), .shells = atoi(arguments[3])};
    const StagedHost host(size, arguments[5]);
    // Until the shells have executed their program.
    usleep(300000);
    std::vector<Cost> passes;
    for (int i = 0; i < atoi(arguments[4]); ++i) {
        passes.push_back(MeasurePass());
    }
    std::ranges::sort(passes, {}, &Cost::OwnMs);
    const Cost& median = passes.at(passes.size() / 2);
    printf(
        "{\"processes\":%d,\"connections\":%d,\"shells\":%d,\"wallMs\":%.2f,\"pausedMs\":%.2f,\"ownMs\":%.2f,"
        "\"cpuMs\":%.2f,\"peakMiB\":%.1f}\n",
        size.processes, size.connections, size.shells, median.wallMs, median.pausedMs, median.OwnMs(), median.cpuMs,
        static_cast<double>(PeakKiB()) / 1024);
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 6) {
        fprintf(stderr, "usage: pass_cost PROCESSES CONNECTIONS SHELLS PASSES ADDRESS\n");
        return 2;
    }
    try {
        return Measure(arguments);
    } catch (const std::exception& error) {
        fprintf(stderr, "pass_cost: %s\n", error.what());
        return 1;
    }
}
