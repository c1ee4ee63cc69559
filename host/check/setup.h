// Checks for orlim-agent check: the module, the environment and the shells. Each function adds its lines to the report.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "host/check/report.h"
#include "host/config/agent_config.h"

namespace Host {

void CheckModule(const std::optional<std::string>& named, CheckReport& report);
void CheckLocation(CheckReport& report);

// Reads the shells listed in listFolder/default_shells and in shellsFile (/etc/shells on a host) and returns those
// that exist.
std::set<std::string> CheckShellLists(const std::string& listFolder, const std::string& shellsFile,
                                      CheckReport& report);
void CheckShellFlags(const std::set<std::string>& shells, CheckReport& report);

}  // namespace Host
