// What one event of the module says, as far as the demonstration asks.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "demo/scenarios.h"

namespace Host {

struct Finding {
    Detection detection = Detection::instantScan;
    std::string operation;    // of shellFileProtection: operationType
    int pid = 0;              // 0 where the event names no process
    int ppid = 0;             // likewise
    std::string path;         // the shell; any bytes
    std::string relatedPath;  // its copy or its other name; any bytes
    std::string detail;       // one line for people; any bytes
    std::string event;        // the JSON text

    // What is found out besides, by whoever receives the event.
    double seconds = 0;        // since the demonstration began
    std::vector<int> lineage;  // pid, its parent, and so on upwards
    std::string tree;          // the wiring as WiringText gives it, empty if there is nothing to see
};

// Reads an event. Nothing if it is none that the demonstration knows. Reverse shells of the short-command watcher
// cannot be told from the instant scan's by their form, and count as the latter. Any thread.
std::optional<Finding> ParseFinding(std::string_view event);

}  // namespace Host
