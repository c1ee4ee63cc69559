// How the agent's program steers the log.
#pragma once

#include "agent/logger.h"

namespace Host {

// Lines below level are dropped before they are formatted. LOG_LEVEL_LIFECYCLE until the first call. Any thread.
void SetLogLevel(LogLevel level);

}  // namespace Host
