// The decisions of a pass, as they fall. The module that ships defines these functions empty; a program that explains a
// pass links definitions that record, and so shows the very decisions that led to its end, with their limits.
#pragma once

#include <string_view>

namespace Trace {

// The tests, in the order of the rooms. Whether true speaks for an alarm or against it depends on the test.
enum class Test {
    // inspect: of the socket in Facts::inode, by whichever process's test asks for it
    socketIsListed,
    socketHasPeer,
    socketMeetsItself,   // both ends are one address
    socketIsSshServers,  // count: its local port; limit: that of ssh
    socketIsConnected,   // count: its state, as the kernel numbers those of TCP
    socketIsNew,         // limit: seconds, by Trace::Limit
    // alarm: of a process that was found, its parent in other
    meetsItself,
    hasParent,
    isRepeated,                     // an alarm with the same key was raised within the last hour
    isBusiness,                     // it runs a command or a file that it was given
    hasPorts,                       // inode: of the connection; true if it has a port at both ends
    parentHasPlausibleDescriptors,  // count: at most one more than limit
    isWhitelisted,
    parentIsWhitelisted,
    hasPeerAddress,
    // classifier, the instant scan
    isShell,             // text: its program
    waitsOnSocket,       // inode
    hasConnection,       // inode: of a socket that is abnormal
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
    feedIsRaw,           // inode: the socket by which the pipe is fed
    waitsOnUnixStream,   // inode
    parentHasRawSocket,  // other, inode: the first abnormal socket, 0 for none
    isGivenACommand,     // text: the command line
    parentIsSshDaemon,   // other
    holderIsInPass,      // other: the parent, which may hold the terminal
    hasTerminal,
    parentHasMultiplexer,  // other
    parentHasConnection,   // other, inode
    isClaimed,             // by the wiring whose tests came before; no later stage looks at it
    // classifier, short commands: of the process that starts them
    startsLate,         // count, limit: milliseconds from its own start to that of the first command
    isTypedByHand,      // count, limit: milliseconds from one command's start to the next
    hasEnoughCommands,  // count, limit
    isSshDaemon,
    hasWritten,  // count: bytes
    // graph
    hostHasForeignSocket,  // count; of no process
    hasShellName,          // text: base name of the program
    holdsChannel,          // a pipe or a socket on descriptor 0 or 1
    inputIsChannel,        // inode: of the pipe or socket on descriptor 0
    outputIsChannel,       // on descriptor 1
    isListedByPattern,     // of the whitelist
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

// What a test is about besides its process, each as the test's comment says; 0 and empty where it says nothing.
struct Facts {
    int other = 0;  // pid
    unsigned long inode = 0;
    long long count = 0;
    long long limit = 0;
    std::string_view text = {};  // valid during the call
};

// Takes down how a test of process pid went (0: of none, or of the one in hand), and returns outcome. A fact that the
// test itself finds must stand before the call: the order in which arguments are evaluated is open. Any thread.
bool Result(Test test, int pid, bool outcome, const Facts& facts = {});

// Takes down the limit of a test that compares with a moment, and so does not know it as a span of time. Any thread.
void Limit(Test test, long long limit);

}  // namespace Trace
