// The text of /proc/<pid>/syscall where the kernel shows no stack.
#include "inspect/blocked_call.h"

#include <optional>
#include <string>

#include "inspect/stackless_wait.h"
#include "tests/fuzz/fuzz_target.h"

static void CheckMachine(const BlockedCall& call, Machine machine) {
    Require(!IsReadingCall(machine, call.number) || !IsSelectCall(machine, call.number), "a call is of one kind");
    const std::optional<unsigned int> read = DescriptorOfWait("inet_recvmsg", call, machine, true);
    Require(read.has_value() == IsReadingCall(machine, call.number), "a right number decides");
    Require(read.value_or(call.firstArgument) == call.firstArgument, "the first argument is the descriptor");
    const std::optional<unsigned int> select = DescriptorOfWait("do_select", call, machine, true);
    Require(select.value_or(0) == 0, "select is on descriptor 0");
    Require(!select || call.firstArgument == 1, "select watches descriptor 0 alone");
    Require(DescriptorOfWait("inet_recvmsg", call, machine, false) == call.firstArgument, "no number decides nothing");
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = TextOf(data, size);
    const std::optional<BlockedCall> call = ParseBlockedCall(text);
    for (const Machine machine : {Machine::arm, Machine::arm64, Machine::x86, Machine::other}) {
        // The same bytes as a kernel's release.
        Require(AreCallNumbersRight(machine, text) || machine == Machine::arm || machine == Machine::other,
                "only 32-bit ARM depends on the release");
        if (call) {
            CheckMachine(*call, machine);
        }
    }
    if (call) {
        const std::string again = std::to_string(call->number) + " 0x" + "0123456789abcdef"[call->firstArgument & 0xFU];
        const std::optional<BlockedCall> second = ParseBlockedCall(again);
        Require(second && second->number == call->number, "a number reads back");
        Require(!text.starts_with("running") && !text.starts_with("-"), "a running task is in no call");
    }
    return 0;
}
