#include "agent/logger.h"

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "host/base/clock.h"
#include "host/base/log.h"
#include "host/base/printable.h"
#include "host/base/stderr_sink.h"

namespace {

constexpr size_t messageLimit = 64 * 1024;
constexpr size_t nameLimit = 256;

std::atomic<int> threshold{LOG_LEVEL_LIFECYCLE};

// Never destroyed: threads may still log after main's statics are gone.
spdlog::logger& Output() {
    static spdlog::logger& logger = *[] {
        auto made = std::make_unique<spdlog::logger>("orlim", std::make_shared<Host::StderrSink>(STDERR_FILENO));
        made->set_level(spdlog::level::trace);
        made->set_formatter(std::make_unique<spdlog::pattern_formatter>("%Y-%m-%dT%H:%M:%S.%eZ %v",
                                                                        spdlog::pattern_time_type::utc, "\n"));
        return made.release();
    }();
    return logger;
}

const char* LevelWord(int level) {
    constexpr const char* words[] = {"detail", "info", "warning", "error"};
    return words[std::clamp(level, 0, 3)];
}

// Formats the message. Cuts it just past the limit, so that WriteLine sees that it was too long.
std::string Format(const char* format, va_list arguments) {
    const int callersErrno = errno;  // %m prints it
    va_list again;
    va_copy(again, arguments);
    char small[512];
    const int length = std::vsnprintf(small, sizeof small, format, arguments);
    std::string message;
    if (length < 0) {
        message = "(cannot be formatted) ";
        message += format;
    } else if (static_cast<size_t>(length) < sizeof small) {
        message.assign(small, static_cast<size_t>(length));
    } else {
        message.resize(std::min(static_cast<size_t>(length), messageLimit + 2) + 1);
        errno = callersErrno;
        std::vsnprintf(message.data(), message.size(), format, again);
        message.pop_back();
    }
    va_end(again);
    return message;
}

void WriteLine(const char* channel, int level, const char* source, unsigned int line, std::string_view message) {
    std::string text = LevelWord(level);
    text += ' ';
    const std::string_view channelName = channel == nullptr ? std::string_view() : channel;
    if (!channelName.empty() && channelName != "NormalLog") {
        text += '[';
        Host::AppendPrintable(text, channelName, nameLimit);
        text += "] ";
    }
    Host::AppendPrintable(text, source == nullptr ? "?" : source, nameLimit);
    text += ':';
    text += std::to_string(line);
    text += ' ';
    if (!message.empty() && message.back() == '\n') {
        message.remove_suffix(1);
    }
    if (!Host::AppendPrintable(text, message, messageLimit)) {
        text += "...";
    }
    Output().log(Host::Clock::WallTime(), spdlog::source_loc{}, spdlog::level::info,
                 spdlog::string_view_t(text.data(), text.size()));
}

}  // namespace

void LoggerWriteLog(const char* channel, LogLevel level, const char* source, unsigned int line, const char* format,
                    ...) {
    if (static_cast<int>(level) < threshold.load(std::memory_order_relaxed)) {
        return;
    }
    const int callersErrno = errno;
    va_list arguments;
    va_start(arguments, format);
    try {
        WriteLine(channel, level, source, line, format == nullptr ? std::string("(null)") : Format(format, arguments));
    } catch (const std::exception&) {
        // A missing line is better than a log that crashes its caller.
    }
    va_end(arguments);
    errno = callersErrno;
}

void Host::SetLogLevel(LogLevel level) {
    threshold.store(level, std::memory_order_relaxed);
}
