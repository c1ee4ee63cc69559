// The line of /proc/<pid>/syscall.

#include <optional>
#include <string>

#include "inspect/kernel_wait.h"
#include "tests/fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string line = TerminatedTextOf(data, size);
    const std::optional<unsigned long> read = BlockedDescriptor(line.c_str(), "pipe_read");
    Require(read == BlockedDescriptor(line.c_str(), "inet_recvmsg"),
            "all reads have their descriptor at the same place");
    const bool isEmpty = line.find_first_not_of(" \t\n\v\f\r") == std::string::npos;
    Require(read.has_value() || isEmpty, "only an empty line has no descriptor of a read");

    const std::optional<unsigned long> select = BlockedDescriptor(line.c_str(), "do_select");
    Require(select.has_value() == (read == 1UL), "select counts only if it watches descriptor 0 alone");
    Require(select.value_or(0) == 0, "select is on descriptor 0");
    return 0;
}
