#include "host/explain/test_text.h"

#include <iterator>
#include <stdexcept>
#include <string_view>

#include "graph/reverse_shell_detector.h"

namespace Host {
namespace {

using Trace::Test;

constexpr TestText texts[] = {
    {Test::socketIsListed, Role::socket, true, nullptr, "is in none of the socket tables that the agent reads"},
    {Test::socketHasPeer, Role::socket, true, nullptr, "has no peer"},
    {Test::socketMeetsItself, Role::socket, false, nullptr, "is a connection of this host with itself"},
    {Test::socketIsSshServers, Role::socket, false, nullptr, "has local port {limit}, the port of the ssh server"},
    {Test::socketIsConnected, Role::socket, true, nullptr, "is not connected, its state is {count}"},
    {Test::socketIsNew, Role::socket, true,
     "a running agent accepts the socket only within {limit} s after it has first seen it; the age of the socket "
     "cannot "
     "be read here, the process has been running for {age}",
     "was first seen more than {limit} s before this pass"},

    {Test::meetsItself, Role::test, false, nullptr, "the connection is one of this host with itself"},
    {Test::hasParent, Role::test, true, nullptr, "it or its parent has exited, or its parent is not part of this pass"},
    {Test::isRepeated, Role::repeat, false, nullptr,
     "the alarm is already raised above; a running agent raises it once per hour"},
    {Test::isBusiness, Role::test, false, "its command line does not count as the host's ordinary work",
     "it was given a command or a file to run, which counts as the host's ordinary work"},
    {Test::hasPorts, Role::test, true, "{socket} has a port at both ends",
     "there is no connection with a port at both ends that an event could name"},
    {Test::parentHasPlausibleDescriptors, Role::test, true,
     "{holder} has {count} descriptors, at most {limit} are allowed",
     "{holder} has no readable descriptors or more than {limit}, unlike an attack"},
    {Test::isWhitelisted, Role::test, false, "no whitelist entry is a prefix of its command line",
     "a whitelist entry is a prefix of its command line"},
    {Test::parentIsWhitelisted, Role::test, false, "no whitelist entry is a prefix of the command line of {holder}",
     "a whitelist entry is a prefix of the command line of {holder}"},
    {Test::hasPeerAddress, Role::test, true, nullptr, "{socket} has no peer that an event could name"},

    {Test::isShell, Role::test, true, "its program is a shell of this host: {text}",
     "its program is neither a shell of this host nor a copy of one: {text}"},
    {Test::waitsOnSocket, Role::test, true, "it waits for input from {socket}",
     "it does not wait for input from an internet socket: {wait}"},
    {Test::hasConnection, Role::test, true, "{socket} counts as a connection", "{socket} {why}"},
    {Test::hasParentInPass, Role::test, true, "its parent is part of this pass: {other}",
     "its parent {other} is not part of this pass"},
    {Test::waitsOnPipe, Role::test, true, "it waits for input from {pipe}",
     "it does not wait for input from a pipe: {wait}"},
    {Test::relayWaitsOnSocket, Role::writer, true, nullptr, "does not wait for input from an internet socket: {wait}"},
    {Test::relayReadsSocket, Role::writer, true, nullptr, "reads {socket} on a descriptor other than 0"},
    {Test::relayWritesPipe, Role::writer, true, nullptr, "writes the pipe on a descriptor other than 1"},
    {Test::relayHasConnection, Role::writer, true,
     "a relay, {other}, reads {socket} on its descriptor 0 and writes the pipe on its descriptor 1",
     "its {socket} {why}"},
    {Test::isFedByRelay, Role::test, true, nullptr, "{why}"},
    {Test::feederIsDescendant, Role::writer, true, nullptr, "is not a descendant of the process"},
    {Test::feederHasConnection, Role::writer, false, "a descendant, {other}, writes the pipe and holds no connection",
     "holds a connection"},
    {Test::isFedByDescendant, Role::test, true, nullptr, "{why}"},
    {Test::feedIsRaw, Role::test, false, nullptr, "the relay's socket is a raw socket"},
    {Test::waitsOnUnixStream, Role::test, true, "it waits for input from a Unix stream",
     "it does not wait for input from a Unix stream: {wait}"},
    {Test::parentHasRawSocket, Role::test, true, "its parent {other} holds a raw socket: {socket}",
     "the first connection of its parent {other} is not a raw socket"},
    {Test::isGivenACommand, Role::test, false, "it was not started with a command to run",
     "it was started with a command to run, as programs do: {text}"},
    {Test::parentIsSshDaemon, Role::test, false, "its parent {other} is not the ssh daemon",
     "its parent {other} is the ssh daemon, or its program cannot be read"},
    {Test::holderIsInPass, Role::test, true, nullptr, "its parent {other} is not part of this pass"},
    {Test::hasTerminal, Role::test, true, "it has a pseudo-terminal open", "it has no pseudo-terminal open"},
    {Test::parentHasMultiplexer, Role::test, true, "its parent {other} has the master side of a pseudo-terminal open",
     "its parent {other} has no master side of a pseudo-terminal open"},
    {Test::parentHasConnection, Role::test, true, "its parent {other} holds a connection: {socket}",
     "its parent {other} holds no socket that counts as a connection"},
    {Test::isClaimed, Role::claim, true, nullptr, nullptr},

    {Test::startsLate, Role::need, true, "its first short command must start at least {limit} ms after the process",
     "its first short command starts {count} ms after the process, less than the {limit} ms that typing takes"},
    {Test::isTypedByHand, Role::need, true,
     "each further short command must start at least {limit} ms after the previous one",
     "its short commands start {count} ms apart, less than the {limit} ms that typing takes"},
    {Test::hasEnoughCommands, Role::need, true,
     "it must start at least {limit} short commands, such as ls, while the agent is running, and they must end",
     "it has started {count} short commands, at least {limit} are needed"},
    {Test::isSshDaemon, Role::test, false, "its program is not the ssh daemon",
     "its program is the ssh daemon, or cannot be read"},
    {Test::hasWritten, Role::test, true, "it has written {count} bytes", "it has written nothing"},

    {Test::hostHasForeignSocket, Role::test, true, "sockets of this host that are connected to another host: {count}",
     "no socket of this host is connected to another host"},
    {Test::hasShellName, Role::test, true, "its program file is called {text}",
     "its program file is called {text}; only {names} are inspected"},
    {Test::holdsChannel, Role::test, true, nullptr, "neither descriptor 0 nor descriptor 1 holds a pipe or a socket"},
    {Test::inputIsChannel, Role::test, true, "descriptor 0 holds {object}", nullptr},
    {Test::outputIsChannel, Role::test, true, "descriptor 1 holds {object}", nullptr},
    {Test::isListedByPattern, Role::test, false, "no whitelist pattern matches its command line",
     "a whitelist pattern matches its command line"},
    {Test::meetsForeignSocket, Role::test, true, "the search from there reaches {socket}",
     "the search from there, through shells and the children of its parent, reaches no connection to another host"},
    {Test::isRemembered, Role::repeat, false, nullptr,
     "the process is already reported above; a running agent reports it once"},

    {Test::isShellFile, Role::test, false, "its program is not one of the host's shells: {text}",
     "its program is one of the host's shells: {text}"},
    {Test::hasProgramFile, Role::test, true, "its program file exists", "its program file does not exist: {text}"},
    {Test::hasShellSize, Role::test, true, "its program file has the size of a shell: {count} bytes",
     "its program file does not have the size of a shell: {count} bytes"},
    {Test::hasShellContent, Role::test, true, "its program file has the content of a shell: {text}",
     "its program file does not have the content of a shell"},
    {Test::showsCommandLine, Role::test, true, "it has a command line", "it has no command line"},
};

constexpr bool StandInOrder() {
    for (size_t i = 0; i < std::size(texts); ++i) {
        if (static_cast<size_t>(texts[i].test) != i) {
            return false;
        }
    }
    return true;
}

static_assert(StandInOrder() && std::size(texts) == static_cast<size_t>(Trace::lastTest) + 1);

std::string ShellNames() {
    std::string names;
    for (const std::string& name : ReverseShellDetector::riskyName) {
        names += (names.empty() ? "" : " and ") + name;
    }
    return names;
}

std::string ValueOf(std::string_view name, const Decision& decision, const Scene& scene) {
    if (name == "text") {
        return decision.text;
    }
    if (name == "count" || name == "limit") {
        return std::to_string(name == "count" ? decision.count : decision.limit);
    }
    if (name == "socket") {
        return SocketText(scene, decision.inode);
    }
    if (name == "pipe") {
        return "pipe " + std::to_string(decision.inode);
    }
    if (name == "object") {
        return ObjectText(scene, decision.inode);
    }
    if (name == "other") {
        return NameOf(scene, decision.other);
    }
    if (name == "holder") {
        return (decision.other == scene.pid ? "" : "its parent ") + NameOf(scene, decision.other);
    }
    if (name == "wait") {
        return WaitText(decision.other == 0 ? decision.pid : decision.other);
    }
    if (name == "age") {
        return AgeText(scene.pid);
    }
    if (name == "names") {
        return ShellNames();
    }
    throw std::logic_error("no value is called " + std::string(name));
}

}  // namespace

std::string Fill(const char* text, const Decision& decision, const Scene& scene, const std::string& why) {
    std::string filled;
    std::string_view rest = text == nullptr ? "" : text;
    for (size_t open = rest.find('{'); open != std::string_view::npos; open = rest.find('{')) {
        const size_t close = rest.find('}', open);
        const std::string_view name = rest.substr(open + 1, close - open - 1);
        filled += rest.substr(0, open);
        filled += name == "why" ? why : ValueOf(name, decision, scene);
        rest.remove_prefix(close + 1);
    }
    return filled.append(rest);
}

const TestText& TextOf(Trace::Test test) {
    return texts[static_cast<size_t>(test)];
}

}  // namespace Host
