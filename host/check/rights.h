// Checks for orlim-agent check: the agent's user and capabilities. The Check functions add their lines to the report.
#pragma once

#include <cstdint>
#include <string>

#include "host/check/report.h"

namespace Host {

// The value of CapEff in the text of /proc/<pid>/status; 0 if there is none.
uint64_t EffectiveCapabilities(const std::string& status);

// True if the capability with this number is in effect for this process.
bool HasCapability(unsigned int number);

// Logs one warning for each capability that is not in effect, with the consequence.
void LogMissingCapabilities();

void CheckUser(CheckReport& report);
void CheckCapabilities(CheckReport& report);
void CheckOthersDescriptors(CheckReport& report);

}  // namespace Host
