// Detects a user-mode emulator of another processor, which passes the system calls that it knows to the host's kernel.
#pragma once

#include <linux/limits.h>
#include <unistd.h>

#include <string>

// The target of a link; empty if it cannot be read.
inline std::string LinkText(const char* link) {
    char text[PATH_MAX];
    const ssize_t length = readlink(link, text, sizeof text);
    return length <= 0 ? std::string() : std::string(text, static_cast<size_t>(length));
}

// qemu fakes /proc/self/exe as the emulated program, but not the link of the thread, which names qemu itself.
// Initialised at load, before a test mounts anything over /proc.
inline const bool runsEmulated = LinkText("/proc/self/exe") != LinkText("/proc/thread-self/exe");

// Skip reason of tests that execute the test program again.
inline constexpr char startsNoProgram[] = "the emulator starts no program of the processor it emulates";
