// The scenarios of the demonstration, with the expected findings of each.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Host {

enum class Detection { instantScan, shortCommandWatcher, periodScan, shellFileProtection };

// For example "instant scan".
const char* DetectionName(Detection detection);

// One expected finding.
struct Expectation {
    Detection detection = Detection::instantScan;
    std::string operation;  // of shellFileProtection: the event's operationType
};

// For example "instant scan" or "shell file protection (copy)".
std::string ExpectationText(const Expectation& expectation);

// One line that the attacker sends on the scenario's connection.
struct AttackerLine {
    std::chrono::milliseconds pause{0};  // after the previous line
    std::string text;
};

struct Scenario {
    std::string name;                   // argument of --only
    std::string title;                  // a short description
    std::vector<Expectation> expected;  // in the order of the report; empty: no finding is allowed
    std::vector<AttackerLine> conversation;
    bool changesShellFile = false;  // the scenario changes a temporary shell file of the demonstration

    bool Harmless() const { return expected.empty(); }
};

// All scenarios, in the order of the report. Any thread.
const std::vector<Scenario>& AllScenarios();

// Null if no scenario has that name. Any thread.
const Scenario* FindScenario(const std::string& name);

// The attacker's port for the scenario.
uint16_t PortOf(const Scenario& scenario);

// The path of the temporary shell of a scenario that changes one.
std::string ShellFileOf(const std::string& directory, const std::string& name);

}  // namespace Host
