// A line of /proc/<pid>/stack.

#include <string>

#include "inspect/kernel_wait.h"
#include "tests/fuzz/fuzz_target.h"

static constexpr const char* functions[] = {"pipe_read", "inet_recvmsg", "unix_stream_recvmsg", "do_select"};

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string line = TerminatedTextOf(data, size);
    int frames = 0;
    for (const char* function : functions) {
        const bool isFrame = IsStackFrameOf(line, function);
        Require(isFrame == IsStackFrameOf(line, function), "reading a line twice gives the same result");
        Require(isFrame == IsStackFrameOf("  " + line, function), "leading white space is ignored");
        if (isFrame) {
            ++frames;
            Require(line.find('+') != std::string::npos, "a frame has an offset");
            Require(!IsStackFrameOf(line + " [tun]", function), "a function of a kernel module does not match");
            Require(!IsStackFrameOf("x " + line, function), "a frame has two pieces");
        }
    }
    Require(frames <= 1, "a line is the frame of one wait");
    return 0;
}
