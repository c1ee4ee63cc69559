// Waits for other threads and the kernel.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <thread>

namespace TestSupport {

// Returns true as soon as the condition holds, false after ten seconds.
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

// The number of threads of this process whose name begins with prefix.
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

// The number of threads of this process with that name.
inline int ThreadsNamed(const std::string& name) {
    return ThreadsNamedLike(name + "\n");
}

}  // namespace TestSupport
