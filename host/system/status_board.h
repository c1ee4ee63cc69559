// The last status report of each detection function.
#pragma once

#include <map>
#include <string>

namespace Host {

struct FunctionStatus {
    bool running;
    std::string code;  // "0000" if in order, otherwise a code of the reporter; may be empty
};

// The last report of each function, by name. Keeps at most 256 names. Any thread.
std::map<std::string, FunctionStatus> DetectionStatus();

}  // namespace Host
