// Records the module's decisions: defines the functions of frame/trace.h, which are empty in the module that ships.
#pragma once

#include <functional>
#include <string>

#include "frame/trace.h"

namespace Host {

// One test of the module with its outcome; see Trace::Facts.
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

// Runs work, which calls the module, and passes each decision to listener at once. listener must not call the module.
// Decisions of other threads or outside work are not recorded. One call at a time.
void RecordDecisions(const std::function<void()>& work, const std::function<void(const Decision&)>& listener);

}  // namespace Host
