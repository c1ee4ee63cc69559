// Whether the agent's own parts are in place, for orlim-agent check. Each function adds its lines to the report.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "host/check/report.h"
#include "host/config/agent_config.h"

namespace Host {

void CheckModule(const std::optional<std::string>& named, CheckReport& report);
void CheckLocation(CheckReport& report);

// Looks up the shells of listFolder/default_shells and of shellsFile (/etc/shells on a host) and returns those that
// exist.
std::set<std::string> CheckShellLists(const std::string& listFolder, const std::string& shellsFile,
                                      CheckReport& report);
void CheckShellFlags(const std::set<std::string>& shells, CheckReport& report);

}  // namespace Host
