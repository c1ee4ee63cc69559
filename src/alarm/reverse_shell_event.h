// The text of a reverse-shell event.
#pragma once

#include <string>

#include "alarm/rshell_alarm_info.h"

// The event as one line of JSON, stamped with the present time. Strings are not cut, whatever they hold. Any thread.
std::string ReverseShellEventText(const RshellAlarmInfo& record);
