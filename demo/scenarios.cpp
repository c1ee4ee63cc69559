#include "demo/scenarios.h"

#include <algorithm>

#include "module/published.h"

namespace Host {
namespace {

using std::chrono::milliseconds;

constexpr uint16_t firstPort = 4441;

// Makes a shell fork, because the instant scan inspects only processes that fork.
const std::vector<AttackerLine> oneCommand{{milliseconds(0), "id\n"}};

// Each command runs long enough to be inspected on a busy host. The commands come at the speed of a person, and the
// program waits on its connection whenever the watcher sweeps. The second group is for the next sweep, in case the
// first sweep misses the first group.
const std::vector<AttackerLine> typedCommands{{milliseconds(0), "sleep 1.5\n"},
                                              {milliseconds(2500), "sleep 1.5\n"},
                                              {milliseconds(2500), "sleep 1.5\n"},
                                              {milliseconds(9000), "sleep 1.5\n"},
                                              {milliseconds(2500), "sleep 1.5\n"}};

Expectation By(Detection detection) {
    return {detection, ""};
}

Expectation Tampering(const char* operation) {
    return {Detection::shellFileProtection, operation};
}

std::vector<Scenario> MakeScenarios() {
    return {
        {"bash-on-socket", "bash whose input and output are a connection", {By(Detection::instantScan)}, oneCommand},
        {"fifo-waiting-relay",
         "bash behind a named pipe; a relay waits on the connection",
         {By(Detection::instantScan)},
         oneCommand},
        {"fifo-polling-relay",
         "bash behind a named pipe; a relay polls the connection",
         {By(Detection::periodScan)},
         oneCommand},
        {"two-relays", "bash two relays away from the connection", {By(Detection::periodScan)}, oneCommand},
        {"terminal-relay",
         "bash on a pseudo-terminal whose owner holds the connection",
         {By(Detection::instantScan)},
         oneCommand},
        {"short-commands",
         "a program that runs commands for the connection",
         {By(Detection::shortCommandWatcher)},
         typedCommands},
        {"renamed-bash",
         "a copy of bash under another name, on a connection",
         {Tampering("copy"), By(Detection::instantScan)},
         oneCommand},
        {"shell-chmod", "chmod of a shell", {Tampering("attribute")}, {}, true},
        {"shell-chattr", "chattr of a shell", {Tampering("attribute")}, {}, true},
        {"shell-rename", "a shell is renamed", {Tampering("move")}, {}, true},
        {"harmless-terminal", "bash on a terminal, without a connection", {}, {}},
        {"harmless-pipeline", "a pipeline of bash", {}, {}},
        {"harmless-build", "a script with many short processes, like a build", {}, {}},
    };
}

}  // namespace

const char* DetectionName(Detection detection) {
    switch (detection) {
        case Detection::instantScan:
            return Published::instantScan;
        case Detection::shortCommandWatcher:
            return Published::shortCommandWatcher;
        case Detection::periodScan:
            return Published::periodScan;
        case Detection::shellFileProtection:
            break;
    }
    return Published::shellFileProtection;
}

std::string ExpectationText(const Expectation& expectation) {
    const std::string name = DetectionName(expectation.detection);
    return expectation.operation.empty() ? name : name + " (" + expectation.operation + ")";
}

const std::vector<Scenario>& AllScenarios() {
    static const std::vector<Scenario> scenarios = MakeScenarios();
    return scenarios;
}

const Scenario* FindScenario(const std::string& name) {
    const auto& all = AllScenarios();
    const auto found = std::find_if(all.begin(), all.end(), [&](const Scenario& each) { return each.name == name; });
    return found == all.end() ? nullptr : &*found;
}

uint16_t PortOf(const Scenario& scenario) {
    const auto& all = AllScenarios();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Scenario& each) { return each.name == scenario.name; });
    return static_cast<uint16_t>(firstPort + (found - all.begin()));
}

std::string ShellFileOf(const std::string& directory, const std::string& name) {
    return directory + "/" + name;
}

}  // namespace Host
