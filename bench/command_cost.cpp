// Measures a command on a staged host, to compare it with a pass of the period scan. Prints one JSON object with the
// median run by wall time, and the largest resident set of all runs.
//
// Usage: command_cost PROCESSES CONNECTIONS SHELLS RUNS ADDRESS COMMAND [ARGUMENT...]

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <vector>

#include "bench/staged_host.h"

namespace {

struct Cost {
    double wallMs;
    double cpuMs;
    double peakMiB;
};

double Milliseconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

[[noreturn]] void Execute(char** command) {
    const int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(nowhere, STDIN_FILENO);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    execvp(command[0], command);
    _exit(127);
}

Cost Run(char** command) {
    const auto began = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        Execute(command);
    }
    int status = 0;
    rusage usage{};
    if (child == -1 || wait4(child, &status, 0, &usage) != child || !WIFEXITED(status) || WEXITSTATUS(status) == 127) {
        throw std::runtime_error("the command could not be run");
    }
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - began;
    return {.wallMs = took.count(),
            .cpuMs = Milliseconds(usage.ru_utime) + Milliseconds(usage.ru_stime),
            .peakMiB = static_cast<double>(usage.ru_maxrss) / 1024};
}

void Measure(char** arguments) {
    const StagedHost host(
        {.processes = atoi(arguments[1]), .connections = atoi(arguments[2]), .shells = atoi(arguments[3])},
        arguments[5]);
    Run(arguments + 6);  // brings the program into the page cache
    std::vector<Cost> runs;
    for (int i = 0; i < atoi(arguments[4]); ++i) {
        runs.push_back(Run(arguments + 6));
    }
    const double peak = std::ranges::max(runs, {}, &Cost::peakMiB).peakMiB;
    std::ranges::sort(runs, {}, &Cost::wallMs);
    const Cost& median = runs.at(runs.size() / 2);
    printf("{\"wallMs\":%.2f,\"cpuMs\":%.2f,\"peakMiB\":%.1f}\n", median.wallMs, median.cpuMs, peak);
}

}  // namespace

int main(int count, char** arguments) {
    if (count < 7) {
        fprintf(stderr, "usage: command_cost PROCESSES CONNECTIONS SHELLS RUNS ADDRESS COMMAND [ARGUMENT...]\n");
        return 2;
    }
    try {
        Measure(arguments);
        return 0;
    } catch (const std::exception& error) {
        fprintf(stderr, "command_cost: %s\n", error.what());
        return 1;
    }
}
