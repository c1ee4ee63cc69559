// Starts short commands at a steady rate, each in a child process, until its standard input ends. Then prints one JSON
// object.
//
// Usage: exec_storm COMMAND RATE LENGTH ALIVE, in commands per second, bytes per command line, and milliseconds that a
// command lives

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

bool InputEnded() {
    pollfd waiting{STDIN_FILENO, POLLIN, 0};
    return poll(&waiting, 1, 0) != 0;
}

// Catches up after a delay, so that the rate is that of the whole run.
long StartCommands(const char* command, long rate, size_t length, const char* alive) {
    std::string name("cmd");
    std::string argument(length - std::min(length, name.size() + 2), 'A');
    std::array<char*, 3> arguments{name.data(), argument.data(), nullptr};
    // In the environment, because the length of the command line is given.
    std::string variable = std::string("STORM_ALIVE_MS=") + alive;
    std::array<char*, 2> environment{variable.data(), nullptr};
    const nanoseconds gap(1000000000L / rate);
    long started = 0;
    for (auto due = steady_clock::now(); !InputEnded(); due += gap) {
        std::this_thread::sleep_until(due);
        pid_t pid = 0;
        started += posix_spawn(&pid, command, nullptr, nullptr, arguments.data(), environment.data()) == 0 ? 1 : 0;
    }
    return started;
}

}  // namespace

int main(int argc, char** argv) {
    const long rate = argc == 5 ? strtol(argv[2], nullptr, 10) : 0;
    if (rate <= 0) {
        fprintf(stderr, "usage: exec_storm COMMAND RATE LENGTH ALIVE\n");
        return 2;
    }
    // The kernel then reaps the ended commands.
    signal(SIGCHLD, SIG_IGN);
    const auto began = steady_clock::now();
    const long started = StartCommands(argv[1], rate, strtoul(argv[3], nullptr, 10), argv[4]);
    const std::chrono::duration<double> took = steady_clock::now() - began;
    printf("{\"started\": %ld, \"seconds\": %.3f}\n", started, took.count());
    return 0;
}
