#include "inspect/blocked_call.h"

#include <sys/utsname.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>

namespace {

enum class Family { arm, x86 };
enum class Kind { reading, select };

struct CallNumber {
    Family family;
    Kind kind;
    long number;
};

}  // namespace

// One table for both widths of a family: none of these numbers is, in the other width, a call that waits for a socket,
// a Unix stream or a select.
static constexpr CallNumber callNumbers[] = {
    // 32-bit ARM (EABI)
    {Family::arm, Kind::reading, 3},    // read
    {Family::arm, Kind::reading, 145},  // readv
    {Family::arm, Kind::reading, 291},  // recv
    {Family::arm, Kind::reading, 292},  // recvfrom
    {Family::arm, Kind::reading, 297},  // recvmsg
    {Family::arm, Kind::reading, 365},  // recvmmsg
    {Family::arm, Kind::reading, 392},  // preadv2, since 4.6
    {Family::arm, Kind::reading, 417},  // recvmmsg_time64, since 5.1
    {Family::arm, Kind::select, 82},    // select
    {Family::arm, Kind::select, 142},   // _newselect
    {Family::arm, Kind::select, 335},   // pselect6
    {Family::arm, Kind::select, 413},   // pselect6_time64, since 5.1
    // arm64
    {Family::arm, Kind::reading, 63},   // read
    {Family::arm, Kind::reading, 65},   // readv
    {Family::arm, Kind::reading, 207},  // recvfrom
    {Family::arm, Kind::reading, 212},  // recvmsg
    {Family::arm, Kind::reading, 243},  // recvmmsg
    {Family::arm, Kind::reading, 286},  // preadv2, since 4.6
    {Family::arm, Kind::select, 72},    // pselect6
    // amd64
    {Family::x86, Kind::reading, 0},    // read
    {Family::x86, Kind::reading, 19},   // readv
    {Family::x86, Kind::reading, 45},   // recvfrom
    {Family::x86, Kind::reading, 47},   // recvmsg
    {Family::x86, Kind::reading, 299},  // recvmmsg
    {Family::x86, Kind::reading, 327},  // preadv2, since 4.6
    {Family::x86, Kind::select, 23},    // select
    {Family::x86, Kind::select, 270},   // pselect6
    // i386
    {Family::x86, Kind::reading, 3},    // read
    {Family::x86, Kind::reading, 145},  // readv
    {Family::x86, Kind::reading, 337},  // recvmmsg
    {Family::x86, Kind::reading, 371},  // recvfrom, since 4.3
    {Family::x86, Kind::reading, 372},  // recvmsg, since 4.3
    {Family::x86, Kind::reading, 378},  // preadv2, since 4.6
    {Family::x86, Kind::reading, 417},  // recvmmsg_time64, since 5.1
    {Family::x86, Kind::select, 82},    // select
    {Family::x86, Kind::select, 142},   // _newselect
    {Family::x86, Kind::select, 308},   // pselect6
    {Family::x86, Kind::select, 413},   // pselect6_time64, since 5.1
};

static bool IsInTable(Machine machine, Kind kind, long number) {
    const Family family = machine == Machine::x86 ? Family::x86 : Family::arm;
    return machine != Machine::other &&
           std::any_of(std::begin(callNumbers), std::end(callNumbers), [&](const CallNumber& row) {
               return row.family == family && row.kind == kind && row.number == number;
           });
}

bool IsReadingCall(Machine machine, long number) {
    return IsInTable(machine, Kind::reading, number);
}

bool IsSelectCall(Machine machine, long number) {
    return IsInTable(machine, Kind::select, number);
}

// Reads a number at the front of text and removes it.
template <typename Number>
static bool TakeNumber(std::string_view& text, Number& value, int base) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return error == std::errc();
}

static bool TakeText(std::string_view& text, std::string_view expected) {
    if (!text.starts_with(expected)) {
        return false;
    }
    text.remove_prefix(expected.size());
    return true;
}

std::optional<BlockedCall> ParseBlockedCall(std::string_view text) {
    // The register of a 64-bit process does not fit in a long of a 32-bit program.
    uint64_t argument{};
    BlockedCall call{};
    if (text.starts_with('-') || !TakeNumber(text, call.number, 10) || !TakeText(text, " 0x") ||
        !TakeNumber(text, argument, 16)) {
        return std::nullopt;
    }
    call.firstArgument = static_cast<unsigned int>(argument);
    return call;
}

bool AreCallNumbersRight(Machine machine, std::string_view release) {
    if (machine != Machine::arm) {
        return machine != Machine::other;
    }
    int major{};
    int minor{};
    if (!TakeNumber(release, major, 10) || !TakeText(release, ".") || !TakeNumber(release, minor, 10)) {
        return false;
    }
    // Commit 4e57a4ddf6b0.
    return major > 5 || (major == 5 && minor >= 15);
}

bool AreCallNumbersRight() {
    utsname kernel{};
    return uname(&kernel) == 0 && AreCallNumbersRight(thisMachine, kernel.release);
}
