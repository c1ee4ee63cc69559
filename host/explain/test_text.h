// The module's tests in words.
#pragma once

#include "frame/trace.h"
#include "host/explain/decision_recorder.h"
#include "host/explain/scene.h"

namespace Host {

// The place of a test in an explanation.
enum class Role {
    test,    // a line of its own
    socket,  // of a socket: why another test, which follows, does not take it
    writer,  // of a process that writes a pipe, likewise
    need,    // of what cannot be seen now: a note where it is met
    repeat,  // whether the alarm is raised already: a note where it is
    claim,   // the end of a wiring's tests
};

struct TestText {
    Trace::Test test;
    Role role;
    bool wanted;      // the outcome that speaks for an alarm
    const char* yes;  // said of this outcome, and of the other; nothing is said where it is null
    const char* no;
};

// Any thread.
const TestText& TextOf(Trace::Test test);

// The text with the decision's values in the place of {count} and the like, and why in that of {why}; empty for null.
// Reads where the process waits at this moment if the text has it. Any bytes. Any thread.
std::string Fill(const char* text, const Decision& decision, const Scene& scene, const std::string& why);

}  // namespace Host
