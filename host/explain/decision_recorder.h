// The recording side of the module's trace: in this program, in place of the module's own empty definitions.
#pragma once

#include <functional>
#include <string>

#include "frame/trace.h"

namespace Host {

// One test of the module, as it went; see Trace::Facts.
struct Decision {
    Trace::Test test = {};
    int pid = 0;
    bool outcome = false;
    int other = 0;
    unsigned long inode = 0;
    long long count = 0;
    long long limit = 0;
    std::string text;  // any bytes
};

// Runs work, which calls the module, and hands each decision to listener at the moment when it falls. The listener must
// not call the module. Decisions of other threads and outside of work are not recorded. One call at a time.
void RecordDecisions(const std::function<void()>& work, const std::function<void(const Decision&)>& listener);

}  // namespace Host
