// Checks for orlim-agent check: facilities of the kernel. Each function adds its lines to the report.
#pragma once

#include "host/check/report.h"

namespace Host {

void CheckProcessEvents(CheckReport& report);
void CheckConnectionTables(CheckReport& report);
void CheckFanotify(CheckReport& report);
void CheckInotify(CheckReport& report);

}  // namespace Host
