// A path to watch, and the reports about it.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "agent/monitor.h"

namespace Host {

using TavUtils::Monitor::FileOperation;
using enum TavUtils::Monitor::FileOperation;

// One call of a rule's listener.
struct ChangeReport {
    int handle = 0;
    FileOperation operation = FILE_MODIFIED;
    std::optional<std::string> path;
    std::optional<std::string> otherPath;
    std::string detail;
};

using ChangeListener = std::function<void(const ChangeReport&)>;

constexpr unsigned OperationBit(FileOperation operation) {
    return 1U << operation;
}

struct WatchRule {
    std::string path;
    unsigned operations = 0;   // an OperationBit for each operation to report
    bool followsPath = false;  // continues when another file replaces the path's file
    // Rules with an equal id get one report per change. Only compared.
    const void* listenerId = nullptr;
    ChangeListener listener;
};

}  // namespace Host
