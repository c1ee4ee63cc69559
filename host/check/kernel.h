// What the kernel offers the agent, for orlim-agent check. Each function adds its lines to the report.
#pragma once

#include "host/check/report.h"

namespace Host {

void CheckProcessEvents(CheckReport& report);
void CheckConnectionTables(CheckReport& report);
void CheckFanotify(CheckReport& report);
void CheckInotify(CheckReport& report);

}  // namespace Host
