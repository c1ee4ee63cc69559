// Which detection functions run.
#pragma once

#include <string>

namespace Plugs {

class StatusCollect {
public:
    // Records whether the detection function of that name is running, with a code ("0000" for in order, otherwise the
    // reporter's own; null counts as empty). Any thread.
    static void ReportDetectStatus(const std::string& name, bool running, const char* code);
};

}  // namespace Plugs
