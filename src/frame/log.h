// The module's log line. A source that logs defines the name of its unit as a constant logSource.
#pragma once

#include "agent/logger.h"

inline constexpr char startupLog[] = "StartupLog";
inline constexpr char normalLog[] = "NormalLog";
inline constexpr char dotLog[] = "DotLog";  // a channel of the agent that the module does not use

#define MODULE_LOG(channel, level, ...) LoggerWriteLog(channel, level, logSource, __LINE__, __VA_ARGS__)
