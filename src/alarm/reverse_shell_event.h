// Builds the text of a reverse-shell event.
#pragma once

#include <string>

#include "alarm/rshell_alarm_info.h"

// The event as one line of JSON with the current time. Strings may hold any bytes and are not truncated. Any thread.
std::string ReverseShellEventText(const RshellAlarmInfo& record);
