// The demonstration: stages scenarios, runs the real module and reports which scenarios it finds.
#pragma once

#include <functional>
#include <string>

#include "demo/options.h"

namespace Host {

// The module. Both functions are called on a separate thread that stays in the program's network namespace, because the
// kernel sends process events only to the initial one.
struct DemoDetector {
    std::function<bool(const std::string& etcDirectory)> start;  // the directory contains the list of shells
    std::function<void()> stop;
};

enum class DemoEnd { passed, failed, interrupted, impossible };

// Runs the demonstration and shows it on standard output. With DemoEnd::impossible, error gives the reason. On the main
// thread, before any other thread is started, with SIGINT, SIGTERM and SIGHUP blocked; afterwards this thread is in
// another network namespace. The names in options must be names of scenarios.
DemoEnd RunDemo(const DemoOptions& options, const DemoDetector& detector, std::string& error);

}  // namespace Host
