// The text of /proc/<pid>/status as the agent reads it.

#include <cstring>
#include <string>

#include "host/processes/process_status_text.h"
#include "tests/fuzz/fuzz_target.h"

using ProcessUtils::ProcStatus;

static constexpr unsigned char filler = 0xA5;

// Through memory: the record is compared with its reserved bytes.
static bool IsSame(const ProcStatus& one, const ProcStatus& other) {
    return memcmp(&one, &other, sizeof(one)) == 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = TextOf(data, size);
    ProcStatus before;
    memset(&before, filler, sizeof(before));
    ProcStatus status = before;
    if (!Host::ParseProcessStatus(text, status)) {
        Require(IsSame(status, before), "a failure leaves the record as it was");
        return 0;
    }
    Require(memcmp(status.reserved, before.reserved, sizeof(status.reserved)) == 0, "the reserved bytes stay");
    if (text.find("Name:") != std::string::npos && status.name[0] != static_cast<char>(filler)) {
        Require(memchr(status.name, '\0', sizeof(status.name)) != nullptr, "a name is terminated");
    }
    ProcStatus again = before;
    Require(Host::ParseProcessStatus(text, again) && IsSame(status, again), "a text reads twice the same");
    return 0;
}
