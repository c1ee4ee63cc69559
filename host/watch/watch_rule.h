// A path to watch and the reports about it, as this room knows them.
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
    bool followsPath = false;  // goes on when another file takes the path's place
    // Equal for rules of which a change is reported once. Only compared.
    const void* listenerId = nullptr;
    ChangeListener listener;
};

}  // namespace Host
