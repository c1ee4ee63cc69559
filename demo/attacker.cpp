#include "demo/attacker.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "demo/network.h"
#include "demo/scenarios.h"
#include "host/base/descriptor.h"

namespace Host {
namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

struct Listener {
    const Scenario* scenario;
    Descriptor socket;
};

struct Conversation {
    const Scenario* scenario;
    Descriptor socket;
    size_t sent = 0;
    milliseconds next{0};  // since the opening
};

void Report(const char* line) {
    WriteAll(STDOUT_FILENO, std::string(line) + "\n");
}

bool AwaitPrompt() {
    char byte = 0;
    ssize_t count = 0;
    do {
        count = ::read(STDIN_FILENO, &byte, 1);
    } while (count < 0 && errno == EINTR);
    return count == 1;
}

std::optional<Listener> Listen(const Scenario& scenario) {
    Listener listener{&scenario, Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))};
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(PortOf(scenario));
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::bind(listener.socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(listener.socket.Get(), 4) != 0) {
        return std::nullopt;
    }
    return listener;
}

// The instant scan judges together all processes that forked within the same second of the clock, and ignores a
// connection that an earlier pass has seen. So all shells must fork in the same second.
system_clock::time_point BeginningOfASecond() {
    constexpr milliseconds leastAhead{400};
    constexpr milliseconds intoTheSecond{100};
    const auto second = std::chrono::ceil<std::chrono::seconds>(system_clock::now() + leastAhead);
    return second + intoTheSecond;
}

void Send(Conversation& conversation, milliseconds now) {
    const std::vector<AttackerLine>& lines = conversation.scenario->conversation;
    if (conversation.sent == 0 && !lines.empty()) {
        conversation.next = lines.front().pause;
    }
    while (conversation.sent < lines.size() && now >= conversation.next) {
        ::send(conversation.socket.Get(), lines[conversation.sent].text.data(), lines[conversation.sent].text.size(),
               MSG_NOSIGNAL);
        ++conversation.sent;
        if (conversation.sent < lines.size()) {
            conversation.next += lines[conversation.sent].pause;
        }
    }
}

// Discards output of the victim. False at the end of the connection.
bool Drain(const Conversation& conversation) {
    char block[4096];
    return ::recv(conversation.socket.Get(), block, sizeof(block), MSG_DONTWAIT) > 0;
}

class Server {
public:
    explicit Server(std::vector<Listener> listeners) : listeners_(std::move(listeners)) {}

    [[noreturn]] void Serve() {
        for (;;) {
            std::vector<pollfd> polls = Polls();
            ::poll(polls.data(), polls.size(), 20);
            size_t at = 0;
            HandlePrompt(polls[at++]);
            for (Conversation& conversation : conversations_) {
                if (polls[at++].revents != 0 && !Drain(conversation)) {
                    conversation.socket.Close();
                }
            }
            std::erase_if(conversations_, [](const Conversation& each) { return !each.socket.IsOpen(); });
            for (const Listener& listener : listeners_) {
                if (polls[at++].revents != 0) {
                    Accept(listener);
                }
            }
            SendAll();
        }
    }

private:
    std::vector<pollfd> Polls() const {
        std::vector<pollfd> polls;
        polls.push_back({.fd = opening_ ? -1 : STDIN_FILENO, .events = POLLIN, .revents = 0});
        for (const Conversation& conversation : conversations_) {
            polls.push_back({.fd = conversation.socket.Get(), .events = POLLIN, .revents = 0});
        }
        for (const Listener& listener : listeners_) {
            polls.push_back({.fd = listener.socket.Get(), .events = POLLIN, .revents = 0});
        }
        return polls;
    }

    void HandlePrompt(const pollfd& poll) {
        if (poll.revents != 0) {
            if (!AwaitPrompt()) {
                ::_exit(0);
            }
            opening_ = BeginningOfASecond();
        }
    }

    void Accept(const Listener& listener) {
        Descriptor socket(::accept4(listener.socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket.IsOpen()) {
            conversations_.push_back({.scenario = listener.scenario, .socket = std::move(socket)});
        }
    }

    void SendAll() {
        const system_clock::time_point now = system_clock::now();
        if (!opening_ || now < *opening_) {
            return;
        }
        for (Conversation& conversation : conversations_) {
            Send(conversation, std::chrono::duration_cast<milliseconds>(now - *opening_));
        }
    }

    std::vector<Listener> listeners_;
    std::vector<Conversation> conversations_;
    std::optional<system_clock::time_point> opening_;
};

}  // namespace

std::string ServeAsAttacker() {
    std::string error;
    if (!EnterNewNetwork(error)) {
        return error;
    }
    Report("ready");
    if (!AwaitPrompt()) {
        return "the demonstration has ended";
    }
    if (!BringUp(attackerInterface, attackerAddress, error)) {
        return error;
    }
    std::vector<Listener> listeners;
    for (const Scenario& scenario : AllScenarios()) {
        std::optional<Listener> listener = Listen(scenario);
        if (!listener) {
            return "cannot listen on port " + std::to_string(PortOf(scenario));
        }
        listeners.push_back(std::move(*listener));
    }
    Report("listening");
    Server(std::move(listeners)).Serve();
}

}  // namespace Host
