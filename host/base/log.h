// The agent's own log lines, in printf form. Each call writes exactly one line, whatever bytes the arguments contain.
// Any thread.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string_view>

#include "agent/logger.h"

namespace Host {

// Lines below level are dropped before they are formatted. The default is LOG_LEVEL_LIFECYCLE. Any thread.
void SetLogLevel(LogLevel level);

// Limits a message to one line per minute, so that others cannot fill the log by provoking it. Any thread.
class LogPacer {
public:
    // True on the first call, then at most once per minute.
    bool MayLog();

private:
    std::mutex mutex_;
    std::optional<std::chrono::steady_clock::time_point> last_;
};

// The name of a source file without folders and extension, cut to 31 bytes, with its terminator.
consteval std::array<char, 32> SourceStem(std::string_view file) {
    file = file.substr(file.rfind('/') + 1);
    file = file.substr(0, file.rfind('.'));
    std::array<char, 32> stem{};
    for (size_t i = 0; i < file.size() && i + 1 < stem.size(); ++i) {
        stem[i] = file[i];
    }
    return stem;
}

}  // namespace Host

#define ORLIM_LOG(level, ...)                                                        \
    do {                                                                             \
        static constexpr auto logSource = Host::SourceStem(__FILE__);                \
        LoggerWriteLog("NormalLog", level, logSource.data(), __LINE__, __VA_ARGS__); \
    } while (false)

// Something was lost or does not work. The operator should act.
#define LogError(...) ORLIM_LOG(LOG_LEVEL_ERROR, __VA_ARGS__)
// Something is wrong, but the agent continues.
#define LogWarning(...) ORLIM_LOG(LOG_LEVEL_WARNING, __VA_ARGS__)
// A step of startup, reload or shutdown.
#define LogInfo(...) ORLIM_LOG(LOG_LEVEL_LIFECYCLE, __VA_ARGS__)
