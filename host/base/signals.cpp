#include "host/base/signals.h"

#include <signal.h>

namespace Host {
namespace {

sigset_t ControlSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    return set;
}

}  // namespace

void BlockControlSignals() {
    const sigset_t set = ControlSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

void IgnoreWriteSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
    sigaction(SIGXFSZ, &action, nullptr);
}

int WaitForControlSignal() {
    const sigset_t set = ControlSignals();
    int number = 0;
    while (sigwait(&set, &number) != 0) {
    }
    return number;
}

}  // namespace Host
