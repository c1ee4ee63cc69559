// The output of a command.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

// The complete standard output of a shell command; empty if it cannot be started.
inline std::string CommandOutput(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string text;
    char block[4096];
    while (pipe != nullptr) {
        const size_t bytes = fread(block, 1, sizeof(block), pipe.get());
        if (bytes == 0) {
            break;
        }
        text.append(block, bytes);
    }
    return text;
}
