#include "host/sinks/stdout_sink.h"

#include <string>

#include "host/base/descriptor.h"
#include "host/base/log.h"

namespace Host {

StdoutSink::StdoutSink(int fd) : fd_(fd) {}

void StdoutSink::Write(std::string_view line) {
    std::string text;
    text.reserve(line.size() + 2);
    if (midLine_) {
        text += '\n';
    }
    text += line;
    text += '\n';
    const WriteResult result = WriteAll(fd_, text);
    if (result.written > 0) {
        midLine_ = text[result.written - 1] != '\n';
    }
    if (result.error != 0) {
        if (!failed_) {
            failed_ = true;
            lostBeforeFailure_ = lost_;
            LogError("cannot write events to standard output: %s; dropping events until writing works again",
                     ErrorText(result.error).c_str());
        }
        ++lost_;
        return;
    }
    if (failed_) {
        failed_ = false;
        LogWarning("writing events to standard output again; %s were lost",
                   std::to_string(lost_ - lostBeforeFailure_).c_str());
    }
}

uint64_t StdoutSink::Finish() {
    if (lost_ != 0) {
        LogError("events lost: %s, because standard output could not be written", std::to_string(lost_).c_str());
    }
    return lost_;
}

}  // namespace Host
