// The system call in which a task sleeps, as /proc/<pid>/syscall shows it.
#pragma once

#include <optional>
#include <string_view>

struct BlockedCall {
    long number;
    unsigned int firstArgument;  // its low 32 bits: a process must not hide by setting higher ones
};

// Returns the call of the file's text. Empty for a task that is running, that sleeps outside a system call (number -1),
// and for any other text.
std::optional<BlockedCall> ParseBlockedCall(std::string_view text);

enum class Machine { arm, arm64, x86, other };

// The machine that this program is built for. A 32-bit program may run on the 64-bit kernel of its family, and the
// kernel runs programs of both widths, so that a machine has the call numbers of both.
#if defined(__arm__)
inline constexpr Machine thisMachine = Machine::arm;
#elif defined(__aarch64__)
inline constexpr Machine thisMachine = Machine::arm64;
#elif defined(__x86_64__) || defined(__i386__)
inline constexpr Machine thisMachine = Machine::x86;
#else
inline constexpr Machine thisMachine = Machine::other;
#endif

// True if a kernel with this release, as in uname(2), shows the right numbers. Those of 32-bit ARM before 5.15 are 0,
// or the number of an earlier call if the task was traced. False for a machine without a table of numbers.
bool AreCallNumbersRight(Machine machine, std::string_view release);

// The same for this machine and the kernel that runs. Any thread.
bool AreCallNumbersRight();

// True if number reads or receives from a descriptor, or is a select(2) in any form. Any thread.
bool IsReadingCall(Machine machine, long number);
bool IsSelectCall(Machine machine, long number);
