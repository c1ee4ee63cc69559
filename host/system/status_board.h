// What the modules last said of their detection functions.
#pragma once

#include <map>
#include <string>

namespace Host {

struct FunctionStatus {
    bool running;
    std::string code;  // "0000" for in order, otherwise the reporter's own; may be empty
};

// The last report of each function by its name, for at most 256 names. Any thread.
std::map<std::string, FunctionStatus> DetectionStatus();

}  // namespace Host
