// Status of the detection functions.
#pragma once

#include <string>

namespace Plugs {

class StatusCollect {
public:
    // Records and logs whether the detection function with this name is running, and a code: "0000" for no error, any
    // other text is the reporter's; null counts as empty. Keeps the first 256 names. Any thread.
    static void ReportDetectStatus(const std::string& name, bool running, const char* code);
};

}  // namespace Plugs
