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
    {Test::socketIsSshServers, Role::socket, false, nullptr, "has the local port {limit}, which is the ssh server's"},
    {Test::socketIsConnected, Role::socket, true, nullptr, "is not connected, its state is {count}"},
    {Test::socketIsNew, Role::socket, true,
     "a running agent takes the socket only while it is new, first seen at most {limit} s before the look; the age "
     "of a socket cannot be read, the process has run for {age}",
     "was first seen more than {limit} s before the look"},

    {Test::meetsItself, Role::test, false, nullptr, "the connection is one of this host with itself"},
    {Test::hasParent, Role::test, true, nullptr, "it or its parent has gone, or its parent is not looked at"},
    {Test::isRepeated, Role::repeat, false, nullptr,
     "the alarm is raised above already, and a running agent raises it once an hour"},
    {Test::isBusiness, Role::test, false, "nothing that it was given to run counts as business of the host",
     "it was given a command or a file to run, which counts as business of the host"},
    {Test::hasPorts, Role::test, true, "{socket} has a port at both ends",
     "there is no connection with a port at both ends that a report could name"},
    {Test::parentHasPlausibleDescriptors, Role::test, true, "{holder} has {count} descriptors, {limit} at most",
     "{holder} shows no descriptors or more than {limit}, which are no attack's"},
    {Test::isWhitelisted, Role::test, false, "its command line begins with no entry of the whitelist",
     "its command line begins with an entry of the whitelist"},
    {Test::parentIsWhitelisted, Role::test, false, "the command line of {holder} begins with no entry of the whitelist",
     "the command line of {holder} begins with an entry of the whitelist"},
    {Test::hasPeerAddress, Role::test, true, nullptr, "{socket} has no peer that a report could name"},

    {Test::isShell, Role::test, true, "its program is a shell of this host: {text}",
     "its program is no shell of this host, nor a copy of one: {text}"},
    {Test::waitsOnSocket, Role::test, true, "it waits for input from {socket}",
     "it does not wait for input from an internet socket: {wait}"},
    {Test::hasConnection, Role::test, true, "{socket} has a peer that is worth a look", "{socket} {why}"},
    {Test::hasParentInPass, Role::test, true, "it has a parent that is looked at: {other}",
     "its parent {other} is not looked at"},
    {Test::waitsOnPipe, Role::test, true, "it waits for input from {pipe}",
     "it does not wait for input from a pipe: {wait}"},
    {Test::relayWaitsOnSocket, Role::writer, true, nullptr, "does not wait for input from an internet socket: {wait}"},
    {Test::relayReadsSocket, Role::writer, true, nullptr, "reads {socket} on another descriptor than 0"},
    {Test::relayWritesPipe, Role::writer, true, nullptr, "writes the pipe on another descriptor than 1"},
    {Test::relayHasConnection, Role::writer, true,
     "a relay, {other}, reads {socket} on its descriptor 0 and writes the pipe on its descriptor 1",
     "its {socket} {why}"},
    {Test::isFedByRelay, Role::test, true, nullptr, "{why}"},
    {Test::feederIsDescendant, Role::writer, true, nullptr, "is no descendant of the process"},
    {Test::feederHasConnection, Role::writer, false,
     "a descendant of it, {other}, writes the pipe and has no connection of its own", "has a connection of its own"},
    {Test::isFedByDescendant, Role::test, true, nullptr, "{why}"},
    {Test::feedIsRaw, Role::test, false, nullptr, "the relay's socket is a raw one"},
    {Test::waitsOnUnixStream, Role::test, true, "it waits for input from a Unix stream",
     "it does not wait for input from a Unix stream: {wait}"},
    {Test::parentHasRawSocket, Role::test, true, "its parent {other} holds a raw one, {socket}",
     "the first connection of its parent {other} is no raw socket"},
    {Test::isGivenACommand, Role::test, false, "it was not started with a command to run",
     "it was started with a command to run, which is a program's own business: {text}"},
    {Test::parentIsSshDaemon, Role::test, false, "its parent {other} is not the ssh daemon",
     "its parent {other} is the ssh daemon, or does not show its program"},
    {Test::holderIsInPass, Role::test, true, nullptr, "its parent {other} is not looked at"},
    {Test::hasTerminal, Role::test, true, "it has a pseudo-terminal open", "it has no pseudo-terminal open"},
    {Test::parentHasMultiplexer, Role::test, true, "its parent {other} has the master side of a pseudo-terminal open",
     "its parent {other} has no master side of a pseudo-terminal open"},
    {Test::parentHasConnection, Role::test, true, "its parent {other} has a connection that is worth a look: {socket}",
     "its parent {other} has no connection that is worth a look"},
    {Test::isClaimed, Role::claim, true, nullptr, nullptr},

    {Test::startsLate, Role::need, true, "the first of them has to start at least {limit} ms after the process",
     "a command that starts {count} ms after the process is no person's: at least {limit} ms"},
    {Test::isTypedByHand, Role::need, true, "each further one has to start at least {limit} ms after the one before",
     "commands that start {count} ms apart are no person's: at least {limit} ms"},
    {Test::hasEnoughCommands, Role::need, true,
     "it takes {limit} short commands besides, such as ls, that a running agent saw the process start and that have "
     "ended",
     "{count} short commands are too few: at least {limit}"},
    {Test::isSshDaemon, Role::test, false, "its program is not the ssh daemon",
     "its program is the ssh daemon, or cannot be read"},
    {Test::hasWritten, Role::test, true, "it has written {count} bytes", "it has written nothing"},

    {Test::hostHasForeignSocket, Role::test, true, "{count} sockets of this host are connections with another host",
     "no socket of this host is a connection with another host"},
    {Test::hasShellName, Role::test, true, "its program file is called {text}",
     "its program file is called {text}, and only {names} are looked at"},
    {Test::holdsChannel, Role::test, true, nullptr, "neither descriptor 0 nor descriptor 1 holds a pipe or a socket"},
    {Test::inputIsChannel, Role::test, true, "descriptor 0 holds {object}", nullptr},
    {Test::outputIsChannel, Role::test, true, "descriptor 1 holds {object}", nullptr},
    {Test::isListedByPattern, Role::test, false, "no pattern of the whitelist matches its command line",
     "a pattern of the whitelist matches its command line"},
    {Test::meetsForeignSocket, Role::test, true, "the search from there meets {socket}",
     "the search from there, among shells and the children of its parent, meets no connection with another host"},
    {Test::isRemembered, Role::repeat, false, nullptr,
     "the process is reported already, and a running agent does it once"},

    {Test::isShellFile, Role::test, false, "its program is not one of the host's shells: {text}",
     "its program is one of the host's shells: {text}"},
    {Test::hasProgramFile, Role::test, true, "its program file is there", "its program file is not there: {text}"},
    {Test::hasShellSize, Role::test, true, "it is as long as a shell: {count} bytes",
     "no shell is as long as it is: {count} bytes"},
    {Test::hasShellContent, Role::test, true, "it has the content of a shell: {text}",
     "it has the content of no shell"},
    {Test::showsCommandLine, Role::test, true, "it shows a command line", "it shows no command line"},
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
