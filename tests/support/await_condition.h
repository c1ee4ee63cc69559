// Waiting for what other threads and the kernel do.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <thread>

namespace TestSupport {

// True as soon as condition is; false after ten seconds.
inline bool Await(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// How many threads of this process have a name that begins so.
inline int ThreadsNamedLike(const std::string& prefix) {
    int count = 0;
    std::error_code error;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task", error)) {
        std::string comm;
        std::getline(std::ifstream(thread.path() / "comm"), comm, '\0');
        count += comm.starts_with(prefix) ? 1 : 0;
    }
    return count;
}

// How many threads of this process have that name.
inline int ThreadsNamed(const std::string& name) {
    return ThreadsNamedLike(name + "\n");
}

}  // namespace TestSupport
