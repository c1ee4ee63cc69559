// Turns the file monitor's reports about a shell into events.
#pragma once

#include <string>

#include "shellfile/abnormal_shell_event.h"

// Completes event, whose path is set, and sends it: once per changed attribute, otherwise once. path and otherPath are
// as reported and may be null. An unknown operation is ignored. Called on the file monitor's thread; takes 10 ms per
// event sent.
void HandleShellReport(SHELL_EVENT& event, const char* path, const char* otherPath, int operation,
                       const std::string& detail);
