// What each report of the file monitor about a shell means.
#pragma once

#include <string>

#include "shellfile/abnormal_shell_event.h"

// Completes event, whose path is set, from a report and sends it, once for each attribute where the report tells
// several. path and otherPath are as reported and may be null. A number that is no report's operation does nothing.
// Called on the file monitor's thread; costs 10 ms for each event sent.
void HandleShellReport(SHELL_EVENT& event, const char* path, const char* otherPath, int operation,
                       const std::string& detail);
