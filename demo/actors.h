// The parts of a scenario: connections, pipes, terminals, shells, relays. For a process with one thread. Started
// programs inherit only the descriptors of their Placement.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "demo/scenarios.h"

namespace Host {

// Throws std::runtime_error with the reason why a scenario cannot be staged.
[[noreturn]] void FailStaging(const std::string& what);

// Descriptor number in the started process -> descriptor here. Without an entry 0, 1 and 2 are /dev/null.
using Placement = std::map<int, int>;

// A connection to the attacker's port for the scenario.
int ConnectToAttacker(const Scenario& scenario);

struct Ends {
    int read;
    int write;
};

Ends MakeAnonymousPipe();

// Creates the file.
Ends MakeNamedPipe(const std::string& path);

struct Terminal {
    int control;
    std::string name;  // path of the side for a shell
};

Terminal MakeTerminal();

// A shell that reads no startup files. arguments follow the options for that.
pid_t StartShell(const Placement& placement, const std::vector<std::string>& arguments = {},
                 const std::string& program = "/bin/bash");

// The same in a new session with this controlling terminal.
pid_t StartShellOnTerminal(const Terminal& terminal);

// Descriptors of a relay, from -> to.
using Routes = std::vector<std::pair<int, int>>;

// A process that polls and copies.
pid_t StartPollingRelay(const Placement& placement, const Routes& routes);

// A process that copies from 0 to 1, and sleeps in read until there is input.
pid_t StartWaitingRelay(const Placement& placement);

// The same in this process; both return when one side is closed.
void RelayPolling(const Routes& routes);
void RelayWaiting();

// Sets the descriptors of this process and closes all others.
void TakePlaces(const Placement& placement);

// Runs one command, split at spaces, and waits for its end.
void RunCommandLine(const std::string& line);

}  // namespace Host
