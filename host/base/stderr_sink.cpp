#include "host/base/stderr_sink.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <string>

#include "host/base/clock.h"

namespace Host {
namespace {

constexpr std::chrono::seconds patience{1};

}  // namespace

void StderrSink::sink_it_(const spdlog::details::log_msg& message) {
    std::string text;
    if (midLine_) {
        text += '\n';
    }
    if (dropped_ != 0) {
        text += '(' + std::to_string(dropped_) + " log lines lost here: the reader of standard error was too slow)\n";
    }
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    text.append(line.data(), line.size());
    if (Write(text)) {
        dropped_ = 0;
    } else {
        ++dropped_;
    }
}

bool StderrSink::Write(std::string_view text) {
    while (!text.empty()) {
        if (!AwaitRoom()) {
            return false;
        }
        // A pipe that polls as writable has room for PIPE_BUF bytes, so the write itself does not block.
        const ssize_t count = ::write(fd_, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) {
            continue;
        }
        if (count <= 0) {
            return false;
        }
        midLine_ = text[static_cast<size_t>(count) - 1] != '\n';
        text.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

bool StderrSink::AwaitRoom() const {
    pollfd room{fd_, POLLOUT, 0};
    const Clock::Time now = Clock::Now();
    return Clock::Poll({&room, 1}, dropped_ != 0 ? now : now + patience) > 0;
}

}  // namespace Host
