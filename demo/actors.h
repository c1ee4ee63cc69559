// What the wirings are built of: connections, pipes, terminals, shells, relays. For a process with one thread. All
// descriptors are closed in programs that are started, save for those that they are given.
#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "demo/scenarios.h"

namespace Host {

// Why a wiring cannot be staged; what() says it.
[[noreturn]] void FailStaging(const std::string& what);

// Descriptor number in the started process -> descriptor here. 0, 1 and 2 are /dev/null where they are not named.
using Placement = std::map<int, int>;

// A connection to the attacker's port for the wiring.
int ConnectToAttacker(const WiringPlan& plan);

struct Ends {
    int read;
    int write;
};

Ends MakeAnonymousPipe();

// The file is made.
Ends MakeNamedPipe(const std::string& path);

struct Terminal {
    int control;
    std::string name;  // of the side for a shell
};

Terminal MakeTerminal();

// A shell without startup files. arguments follow those.
pid_t StartShell(const Placement& placement, const std::vector<std::string>& arguments = {},
                 const std::string& program = "/bin/bash");

// The same in a session that has the terminal.
pid_t StartShellOnTerminal(const Terminal& terminal);

// From -> to, as descriptors of the relay.
using Routes = std::vector<std::pair<int, int>>;

// A process that polls and copies.
pid_t StartPollingRelay(const Placement& placement, const Routes& routes);

// A process that copies from 0 to 1 and sleeps in read in between.
pid_t StartWaitingRelay(const Placement& placement);

// The same two within this process; they return when a side has ended.
void RelayPolling(const Routes& routes);
void RelayWaiting();

// Gives this process the descriptors and closes all others.
void TakePlaces(const Placement& placement);

// Runs one command, words divided by blanks, and waits for its end.
void RunCommandLine(const std::string& line);

}  // namespace Host
