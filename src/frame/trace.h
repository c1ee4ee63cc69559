// The decisions of a pass. In the module that ships, these functions do nothing. A program that explains a pass links
// definitions that record the decisions and their limits.
#pragma once

#include <string_view>

namespace Trace {

// The tests, in the order of the rooms. Whether true counts for or against an alarm depends on the test.
enum class Test {
    // inspect: about the socket in Facts::inode, during a test of any process
    socketIsListed,
    socketHasPeer,
    socketMeetsItself,   // both ends have the same address
    socketIsSshServers,  // count: its local port; limit: the port of ssh
    socketIsConnected,   // count: its state, in the kernel's numbers for TCP
    socketIsNew,         // limit: seconds, by Trace::Limit
    // alarm: about a process with a finding; other: its parent
    meetsItself,
    hasParent,
    isRepeated,                     // an alarm with the same key was raised within the last hour
    isBusiness,                     // it runs a command or a file given as an argument
    hasPorts,                       // inode: of the connection; true if both ends have a port
    parentHasPlausibleDescriptors,  // count: at most one more than limit
    isWhitelisted,
    parentIsWhitelisted,
    hasPeerAddress,
    // classifier, the instant scan
    isShell,             // text: its program
    waitsOnSocket,       // inode
    hasConnection,       // inode: of an abnormal socket
    hasParentInPass,     // other: the parent
    waitsOnPipe,         // inode
    relayWaitsOnSocket,  // other: a writer of the pipe; inode: the socket
    relayReadsSocket,    // on its descriptor 0
    relayWritesPipe,     // on its descriptor 1
    relayHasConnection,
    isFedByRelay,        // inode: the pipe
    feederIsDescendant,  // other: a writer of the pipe
    feederHasConnection,
    isFedByDescendant,   // inode: the pipe
    feedIsRaw,           // inode: the socket that feeds the pipe
    waitsOnUnixStream,   // inode
    parentHasRawSocket,  // other, inode: the first abnormal socket, 0 for none
    isGivenACommand,     // text: the command line
    parentIsSshDaemon,   // other
    holderIsInPass,      // other: the parent, a possible holder of the terminal
    hasTerminal,
    parentHasMultiplexer,  // other
    parentHasConnection,   // other, inode
    isClaimed,             // by the wiring tested before; later stages skip the process
    // classifier, short commands: about the process that starts them
    startsLate,         // count, limit: milliseconds from its own start to that of the first command
    isTypedByHand,      // count, limit: milliseconds from one command's start to the next
    hasEnoughCommands,  // count, limit
    isSshDaemon,
    hasWritten,  // count: bytes
    // graph
    hostHasForeignSocket,  // count; about no process
    hasShellName,          // text: base name of the program
    holdsChannel,          // a pipe or a socket on descriptor 0 or 1
    inputIsChannel,        // inode: of the pipe or socket on descriptor 0
    outputIsChannel,       // on descriptor 1
    isListedByPattern,     // in the whitelist
    meetsForeignSocket,    // inode
    isRemembered,          // the same pid and command line have been reported
    // shellfile
    isShellFile,      // text: its program
    hasProgramFile,   // text
    hasShellSize,     // count: bytes
    hasShellContent,  // text: the shell
    showsCommandLine,
};

inline constexpr Test lastTest = Test::showsCommandLine;

// Facts of a test besides its process. The comment of each test says which are set; the others are 0 or empty.
struct Facts {
    int other = 0;  // pid
    unsigned long inode = 0;
    long long count = 0;
    long long limit = 0;
    std::string_view text = {};  // valid during the call
};

// Records the outcome of a test of process pid and returns outcome. pid is 0 for a test of no process or of the process
// under test. Facts that the test itself finds must be computed before the call, because the order in which arguments
// are evaluated is unspecified. Any thread.
bool Result(Test test, int pid, bool outcome, const Facts& facts = {});

// Records the limit of a test that compares with a point in time, and so does not have the limit as a duration. Any
// thread.
void Limit(Test test, long long limit);

}  // namespace Trace
