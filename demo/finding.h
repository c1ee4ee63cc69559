// One event of the module, reduced to the values that the demonstration needs.
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
    int pid = 0;              // 0 if the event names no process
    int ppid = 0;             // 0 if the event names no process
    std::string path;         // the shell; any bytes
    std::string relatedPath;  // the copy or the new name; any bytes
    std::string detail;       // one line for people; any bytes
    std::string event;        // the JSON text

    // Added by EventIntake.
    double seconds = 0;        // since the demonstration began
    std::vector<int> lineage;  // pid and its ancestors
    std::string tree;          // the wiring, from WiringText; may be empty
};

// Reads an event; nothing if its type is unknown. Events of the short-command watcher have the same form as those of
// the instant scan, and are returned as the latter. Any thread.
std::optional<Finding> ParseFinding(std::string_view event);

}  // namespace Host
