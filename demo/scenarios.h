// The wirings that the demonstration stages, and what the detection has to say of each.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Host {

enum class Detection { instantScan, shortCommandWatcher, periodScan, shellFileProtection };

// Such as "instant scan".
const char* DetectionName(Detection detection);

// One finding that has to come.
struct Expectation {
    Detection detection = Detection::instantScan;
    std::string operation;  // of shellFileProtection: the event's operationType
};

// Such as "instant scan" or "shell file protection (copy)".
std::string ExpectationText(const Expectation& expectation);

// What the attacker sends to a wiring's connection.
struct AttackerLine {
    std::chrono::milliseconds pause{0};  // after the line before
    std::string text;
};

struct WiringPlan {
    std::string name;                   // as --only takes it
    std::string title;                  // half a line for people
    std::vector<Expectation> expected;  // in the order in which they are told; none: it has to stay silent
    std::vector<AttackerLine> conversation;
    bool changesShellFile = false;  // the wiring is a change to a throw-away shell of the demonstration's own

    bool Harmless() const { return expected.empty(); }
};

// All of them, in the order in which they are told. Any thread.
const std::vector<WiringPlan>& AllWirings();

// Null if there is none of that name. Any thread.
const WiringPlan* FindWiring(const std::string& name);

// The attacker's port for the wiring.
uint16_t PortOf(const WiringPlan& plan);

// The throw-away shell of a wiring that changes one.
std::string ShellFileOf(const std::string& directory, const std::string& name);

}  // namespace Host
