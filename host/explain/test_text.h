// The text of each of the module's tests.
#pragma once

#include "frame/trace.h"
#include "host/explain/decision_recorder.h"
#include "host/explain/scene.h"

namespace Host {

// The place of a test in an explanation.
enum class Role {
    test,    // a separate line
    socket,  // of a socket: on failure, the reason for a later test
    writer,  // of a process that writes a pipe: on failure, the reason for a later test
    need,    // of a condition that cannot be observed here: a note if it is met
    repeat,  // whether the alarm is already raised: a note if it is
    claim,   // the last test of a wiring
};

struct TestText {
    Trace::Test test;
    Role role;
    bool wanted;      // the outcome that supports an alarm
    const char* yes;  // text for the wanted outcome; null for none
    const char* no;   // text for the other outcome; null for none
};

// Any thread.
const TestText& TextOf(Trace::Test test);

// Replaces {count} and the like by the decision's values, and {why} by why; empty if text is null. {wait} reads where
// the process waits now. Any bytes. Any thread.
std::string Fill(const char* text, const Decision& decision, const Scene& scene, const std::string& why);

}  // namespace Host
