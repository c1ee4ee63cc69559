// The agent's log.
#pragma once

enum LogLevel : int {
    LOG_LEVEL_DETAIL = 0,
    LOG_LEVEL_LIFECYCLE = 1,
    LOG_LEVEL_WARNING = 2,
    LOG_LEVEL_ERROR = 3,
};

// Writes one line, in printf form. One call is one line, whatever bytes the arguments contain. source is the name of
// the calling unit, line the source line of the call. Lines below the user's log level are not formatted. Any thread.
[[gnu::format(printf, 5, 6)]] void LoggerWriteLog(const char* channel, LogLevel level, const char* source,
                                                  unsigned int line, const char* format, ...);
