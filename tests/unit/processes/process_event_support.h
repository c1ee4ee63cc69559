// Helpers for tests of process events.
#pragma once

#include <spawn.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

#include "tests/support/emulation.h"

namespace TestSupport {

// The reason why this process cannot receive process events, found without the code under test. Empty if it can.
inline std::string MissingForProcessEvents() {
    if (runsEmulated) {
        return "the emulator knows no process connector";
    }
    if (geteuid() != 0) {
        return "process events need CAP_NET_ADMIN";
    }
    struct Space {
        const char* path;
        const char* initial;
    };
    // The kernel assigns the initial namespaces fixed numbers.
    for (const Space& space :
         {Space{"/proc/self/ns/pid", "pid:[4026531836]"}, Space{"/proc/self/ns/user", "user:[4026531837]"}}) {
        std::array<char, 64> target{};
        if (readlink(space.path, target.data(), target.size() - 1) < 0 || target.data() != std::string(space.initial)) {
            return std::string("process events need the initial namespace ") + space.path;
        }
    }
    return {};
}

// Runs /bin/true to its end and returns its former PID.
inline pid_t SpawnTrue() {
    pid_t pid = -1;
    std::array<char, 5> name{"true"};
    std::array<char*, 2> arguments{name.data(), nullptr};
    std::array<char*, 1> environment{nullptr};
    if (posix_spawn(&pid, "/bin/true", nullptr, nullptr, arguments.data(), environment.data()) == 0) {
        waitpid(pid, nullptr, 0);
    }
    return pid;
}

}  // namespace TestSupport
