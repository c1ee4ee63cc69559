// The text of /proc/<pid>/status as the agent reads it.

#include <string>

#include "host/processes/process_status_text.h"
#include "tests/fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = TextOf(data, size);
    const auto status = Host::ParseProcessStatus(text);
    Require(status == Host::ParseProcessStatus(text), "reading a text twice gives the same status");
    if (status) {
        Require(text.find("Pid:") != std::string::npos && text.find("PPid:") != std::string::npos,
                "the text has both pids");
        Require(status->name.find('\n') == std::string::npos, "a name contains no line end");
        Require(text.find(status->name) != std::string::npos, "a name is part of the text");
    }
    return 0;
}
