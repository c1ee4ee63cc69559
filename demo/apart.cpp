#include "demo/apart.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "demo/child_process.h"
#include "host/base/descriptor.h"

namespace Host {
namespace {

struct Answer {
    pid_t pid;
    int status;
};

void Send(const Descriptor& to, const Answer& answer) {
    WriteAll(to.Get(), std::string_view(reinterpret_cast<const char*>(&answer), sizeof(answer)));
}

// An Answer is smaller than PIPE_BUF, so the pipe delivers it whole.
bool Receive(const Descriptor& from, Answer& answer) {
    return from.Read(&answer, sizeof(answer)) == static_cast<ssize_t>(sizeof(answer));
}

// In the new process: reports its pid, waits until it is an orphan, runs work and sends its status.
[[noreturn]] void Work(const std::function<int()>& work, Pipe& answers, Pipe& caller) {
    answers.readEnd.Close();
    caller.writeEnd.Close();
    Send(answers.writeEnd, {.pid = ::getpid(), .status = 0});
    char go = 0;
    if (caller.readEnd.Read(&go, 1) != 1) {
        ::_exit(EXIT_FAILURE);
    }
    std::thread([end = caller.readEnd.Get()] {
        char none = 0;
        while (::read(end, &none, 1) < 0 && errno == EINTR) {
        }
        ::kill(::getpid(), SIGTERM);
    }).detach();
    const int status = work();
    Send(answers.writeEnd, {.pid = ::getpid(), .status = status});
    std::exit(status);
}

std::optional<int> AwaitAnswer(pid_t worker, const Descriptor& answers) {
    sigset_t passedOn;
    sigemptyset(&passedOn);
    sigaddset(&passedOn, SIGINT);
    sigaddset(&passedOn, SIGTERM);
    sigaddset(&passedOn, SIGHUP);
    const Descriptor signals(::signalfd(-1, &passedOn, SFD_CLOEXEC));
    for (;;) {
        pollfd sources[] = {{.fd = answers.Get(), .events = POLLIN, .revents = 0},
                            {.fd = signals.Get(), .events = POLLIN, .revents = 0}};
        if (::poll(sources, 2, -1) < 0 && errno != EINTR) {
            return std::nullopt;
        }
        signalfd_siginfo signal{};
        if ((sources[1].revents & POLLIN) != 0 && signals.Read(&signal, sizeof(signal)) > 0) {
            ::kill(worker, static_cast<int>(signal.ssi_signo));
        }
        if (sources[0].revents != 0) {
            Answer answer{};
            if (!Receive(answers, answer)) {
                return std::nullopt;
            }
            Answer nothing{};
            Receive(answers, nothing);  // waits for the end of the process
            return answer.status;
        }
    }
}

}  // namespace

std::optional<int> RunApart(const std::function<int()>& work) {
    Pipe answers = MakePipe();
    Pipe caller = MakePipe();
    const pid_t between = ::fork();
    if (between == 0) {
        const pid_t worker = ::fork();
        if (worker == 0) {
            Work(work, answers, caller);
        }
        ::_exit(worker < 0 ? EXIT_FAILURE : EXIT_SUCCESS);
    }
    answers.writeEnd.Close();
    caller.readEnd.Close();
    if (between < 0) {
        return std::nullopt;
    }
    while (::waitpid(between, nullptr, 0) < 0 && errno == EINTR) {
    }
    Answer started{};
    if (!Receive(answers.readEnd, started)) {
        return std::nullopt;
    }
    WriteAll(caller.writeEnd.Get(), "\n");
    return AwaitAnswer(started.pid, answers.readEnd);
}

}  // namespace Host
