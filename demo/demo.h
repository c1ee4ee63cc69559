// The demonstration: known wirings, the real module, and whether the one finds the other.
#pragma once

#include <functional>
#include <string>

#include "demo/options.h"

namespace Host {

// The module. Both are called on a thread of their own, which stays in the network namespace that the program began in,
// where alone the kernel tells of processes.
struct DemoDetector {
    std::function<bool(const std::string& etcDirectory)> start;  // with that directory for the list of shells
    std::function<void()> stop;
};

enum class DemoEnd { passed, failed, interrupted, impossible };

// Runs it and shows it on standard output. With DemoEnd::impossible, error says why. On the main thread, before any
// other has been started, with SIGINT and SIGTERM blocked; the thread's network namespace is another one from then on.
// The names in options must be those of wirings.
DemoEnd RunDemo(const DemoOptions& options, const DemoDetector& detector, std::string& error);

}  // namespace Host
