// The agent's log.
#pragma once

enum LogLevel : int {
    LOG_LEVEL_DETAIL = 0,
    LOG_LEVEL_LIFECYCLE = 1,
    LOG_LEVEL_WARNING = 2,
    LOG_LEVEL_ERROR = 3,
};

// Writes one line in printf form; whatever bytes the arguments bring, one call is one line. source names the calling
// unit, line is the source line of the call. Lines below the level set by the user cost no formatting. Any thread.
[[gnu::format(printf, 5, 6)]] void LoggerWriteLog(const char* channel, LogLevel level, const char* source,
                                                  unsigned int line, const char* format, ...);
