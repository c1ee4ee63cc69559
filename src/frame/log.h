// The module's log line. A source that logs names its unit in a constant logSource.
#pragma once

#include "agent/logger.h"

inline constexpr char startupLog[] = "StartupLog";
inline constexpr char normalLog[] = "NormalLog";
inline constexpr char dotLog[] = "DotLog";  // known to the agent; the module writes nothing to it

#define MODULE_LOG(channel, level, ...) LoggerWriteLog(channel, level, logSource, __LINE__, __VA_ARGS__)
