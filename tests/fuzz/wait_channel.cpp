// The text of /proc/<pid>/wchan.
#include "inspect/wait_channel.h"

#include "tests/fuzz/fuzz_target.h"

static constexpr const char* functions[] = {"pipe_read", "inet_recvmsg", "unix_stream_recvmsg", "do_select"};

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = TextOf(data, size);
    int waits = 0;
    for (const char* function : functions) {
        const bool isChannel = IsChannelOfWait(function, text);
        waits += isChannel ? 1 : 0;
        Require(isChannel == IsChannelOfWait(function, text + "\n"), "a newline at the end does not count");
        Require(isChannel == IsChannelOfWait(function, text + ".part.0"), "a suffix does not count");
        Require(!IsChannelOfWait(function, "x" + text), "a name is compared from its first character");
        Require(!isChannel || text.find("read") != std::string::npos || text.find("wait") != std::string::npos ||
                    text.find("rec") != std::string::npos || text.find("select") != std::string::npos ||
                    text.find("poll") != std::string::npos,
                "a channel is named for a read or a wait");
    }
    Require(waits <= 1, "a channel belongs to one wait");
    Require(!IsChannelOfWait(text, text) || waits == 1, "a wait is asked for by its own name");
    return 0;
}
