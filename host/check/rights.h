// What the agent may do on this host. The Check functions add their lines to the report of orlim-agent check.
#pragma once

#include <cstdint>
#include <string>

#include "host/check/report.h"

namespace Host {

// Value of CapEff in the text of /proc/<pid>/status, 0 if there is none.
uint64_t EffectiveCapabilities(const std::string& status);

// Whether the capability with this number is in effect for this process.
bool HasCapability(unsigned int number);

// One warning in the log for each capability that is not in effect, with what that costs.
void LogMissingCapabilities();

void CheckUser(CheckReport& report);
void CheckCapabilities(CheckReport& report);
void CheckOthersDescriptors(CheckReport& report);

}  // namespace Host
