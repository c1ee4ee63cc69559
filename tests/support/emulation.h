// Whether a test runs in an emulator of another processor, which passes its calls on to the machine's kernel as far as
// it knows them.
#pragma once

#include <linux/limits.h>
#include <unistd.h>

#include <string>

// The text of a link; empty if there is none.
inline std::string LinkText(const char* link) {
    char text[PATH_MAX];
    const ssize_t length = readlink(link, text, sizeof text);
    return length <= 0 ? std::string() : std::string(text, static_cast<size_t>(length));
}

// qemu answers for /proc/self/exe with the emulated program; the link of the thread, which it leaves to the kernel, is
// to qemu. Found out at load, before a test mounts anything over /proc.
inline const bool runsEmulated = LinkText("/proc/self/exe") != LinkText("/proc/thread-self/exe");

// Why a test that starts the test program anew is skipped in an emulator.
inline constexpr char startsNoProgram[] = "the emulator starts no program of the processor it emulates";
