// What keeps the agent from seeing the whole host whatever its capabilities, for orlim-agent check. The Check functions
// add their lines to the report.
#pragma once

#include <string>

#include "host/check/report.h"

namespace Host {

// Value of the hidepid option of the mount at /proc in the text of /proc/self/mounts, empty if there is none.
std::string HidepidOption(const std::string& mounts);

// Whether the target of a link in /proc/<pid>/ns, such as "pid:[4026531836]", names a namespace that is not the
// system's first one of its kind, "pid" or "user". A kernel without such namespaces has no link: the target is empty.
bool IsLaterNamespace(const std::string& target);

// Adds the line for the text of /proc/sys/kernel/yama/ptrace_scope, empty where there is none.
void ReportYama(const std::string& scope, CheckReport& report);

// Adds the line for the text of /sys/kernel/security/lockdown, empty where there is none.
void ReportLockdown(const std::string& modes, CheckReport& report);

void CheckHidepid(CheckReport& report);
void CheckNamespaces(CheckReport& report);
void CheckYama(CheckReport& report);
void CheckLockdown(CheckReport& report);

}  // namespace Host
